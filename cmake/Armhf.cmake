# Cross build for 32-bit ARM (Debian's armhf): the machine's cross compiler, libraries and headers from the sysroot
# that scripts/sysroot-armhf unpacks, and user-mode emulation for whatever the build or the tests run.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(triplet arm-linux-gnueabihf)
cmake_path(SET repository NORMALIZE "${CMAKE_CURRENT_LIST_DIR}/..")
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
# Everything is built with one compiler: how an earlier one passed parameters is of no interest.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
set(CMAKE_SYSROOT ${repository}build/sysroot-armhf)
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
set(CMAKE_FIND_ROOT_PATH ${CMAKE_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR ${repository}scripts/emulate-armhf)
