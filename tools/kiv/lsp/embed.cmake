# Writes the text of a file into a C++ source as the body of
# kivtool::format_reference(): an array of raw string literals, each ending
# at a line end (so none splits a character), with a delimiter the text
# does not hold, joined once at run time (a compiler need not take one
# literal longer than 64 KiB).
#   cmake -DINPUT=docs/format.md -DOUTPUT=format_md.cpp -P embed.cmake
cmake_minimum_required(VERSION 3.20)
if(NOT INPUT OR NOT OUTPUT)
  message(FATAL_ERROR "usage: cmake -DINPUT=<file> -DOUTPUT=<file.cpp> -P embed.cmake")
endif()
file(READ "${INPUT}" text)

set(delim "kivdoc")
set(n 0)
while(TRUE)
  string(FIND "${text}" ")${delim}\"" at)
  if(at EQUAL -1)
    break()
  endif()
  math(EXPR n "${n} + 1")
  set(delim "kivdoc${n}")
endwhile()

# Literals of about 8 KiB (some compilers limit the length of one), each
# ending at a line end, so that none splits a character.
set(chunk 8000)
set(body "")
string(LENGTH "${text}" left)
while(left GREATER 0)
  set(cut ${left})
  if(left GREATER chunk)
    string(SUBSTRING "${text}" 0 ${chunk} head)
    string(FIND "${head}" "\n" cut REVERSE)
    if(cut EQUAL -1) # a line longer than a chunk: up to its end
      string(SUBSTRING "${text}" ${chunk} -1 rest)
      string(FIND "${rest}" "\n" cut)
      if(cut EQUAL -1)
        set(cut ${left})
      else()
        math(EXPR cut "${chunk} + ${cut} + 1")
      endif()
    else()
      math(EXPR cut "${cut} + 1")
    endif()
  endif()
  string(SUBSTRING "${text}" 0 ${cut} head)
  string(SUBSTRING "${text}" ${cut} -1 text)
  # A compiler reads a carriage return as a line end, and a backslash before
  # blanks at a line end as a line splice (with a warning): such characters
  # go outside the raw literals.  (file(READ) has made CR LF a line feed.)
  string(REPLACE "\r" ")${delim}\" \"\\r\" R\"${delim}(" head "${head}")
  string(REGEX REPLACE "\\\\([ \t]+\n)" "\\\\)${delim}\" R\"${delim}(\\1" head "${head}")
  string(APPEND body "    R\"${delim}(${head})${delim}\",\n")
  math(EXPR left "${left} - ${cut}")
endwhile()
if(body STREQUAL "")
  set(body "    \"\",\n")
endif()

file(WRITE "${OUTPUT}.tmp"
     "// Made from ${INPUT} by embed.cmake at build time; do not edit.\n"
     "#include \"lsp/keydocs.h\"\n\n"
     "namespace kivtool\n{\n\n"
     "namespace\n{\nconst char *const parts[] = {\n${body}};\n} // namespace\n\n"
     "std::string_view format_reference()\n{\n"
     "    static const std::string text = [] {\n"
     "        std::string t;\n"
     "        for (const char *p : parts)\n"
     "            t += p;\n"
     "        return t;\n"
     "    }();\n"
     "    return text;\n}\n\n"
     "} // namespace kivtool\n")
# Touch the source only when it changed.
execute_process(COMMAND "${CMAKE_COMMAND}" -E copy_if_different "${OUTPUT}.tmp" "${OUTPUT}")
file(REMOVE "${OUTPUT}.tmp")
