# Toolchain of the preset arm64: Debian's cross compiler (g++-aarch64-linux-gnu) and the C library that
# comes with it. Not the device build: that is Soong's.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
# Where Debian keeps the libraries of that architecture; qemu finds the loader below it.
set(HARROWMOSS_TARGET_ROOT /usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH ${HARROWMOSS_TARGET_ROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR /usr/bin/qemu-aarch64-static;-L;${HARROWMOSS_TARGET_ROOT})
