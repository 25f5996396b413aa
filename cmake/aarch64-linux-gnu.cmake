# Cross build for the camera's 64-bit Arm processor with Debian's cross
# compiler and the arm64 packages installed through multiarch; binaries run
# under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
# The emulator takes the arm64 C library installed through multiarch with
# its own loader (-L /): the cross toolchain's loader under
# /usr/aarch64-linux-gnu with the multiarch libc.so.6 that ld.so.cache
# names, a different build of it, hangs in creating a thread.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64;-L;/)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} "")
