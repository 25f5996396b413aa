# The shared library depends on the C library and Lua only: no C++ runtime.
# And it runs no code of its own when it is loaded: no static initialiser
# (its key tables, hashes included, are constant data from the compiler).
#   cmake -DLIB=<path to the shared library> -P check_needed.cmake
execute_process(COMMAND readelf -d ${LIB} OUTPUT_VARIABLE dyn RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "readelf failed on ${LIB}")
endif()
string(REGEX MATCHALL "\\(NEEDED\\)[^\n]*\\[[^]]+\\]" lines "${dyn}")
set(needed "")
foreach(line IN LISTS lines)
  string(REGEX REPLACE ".*\\[([^]]+)\\]" "\\1" lib "${line}")
  list(APPEND needed ${lib})
endforeach()
message(STATUS "NEEDED: ${needed}")
foreach(lib IN LISTS needed)
  if(NOT lib MATCHES "^(libc\\.so|liblua5\\.3\\.so|ld-linux|libasan|libubsan|libtsan)")
    message(FATAL_ERROR "${LIB} needs ${lib}: only the C library and Lua are expected")
  endif()
endforeach()

execute_process(COMMAND nm ${LIB} OUTPUT_VARIABLE syms RESULT_VARIABLE rc)
if(rc EQUAL 0 AND syms MATCHES "_GLOBAL__sub_I_([^\n]*)")
  message(FATAL_ERROR "${LIB} initialises ${CMAKE_MATCH_1} when loaded: a table is not constant")
endif()
