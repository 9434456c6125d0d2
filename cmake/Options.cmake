# The options that every target of this project compiles with, carried by the interface target wpp_options.
include_guard(GLOBAL)

option(WPP_WERROR "Treat warnings as errors" ON)
set(WPP_SANITIZE "" CACHE STRING "Sanitizers to build with: empty, 'address,undefined' or 'thread'")

set(WPP_SOURCE_ROOT "${CMAKE_CURRENT_LIST_DIR}/..")
cmake_path(NORMAL_PATH WPP_SOURCE_ROOT)

add_library(wpp_options INTERFACE)
target_compile_features(wpp_options INTERFACE cxx_std_17)
# Files may be longer than 2 GiB on a 32-bit machine too.
target_compile_definitions(wpp_options INTERFACE _FILE_OFFSET_BITS=64)
target_compile_options(wpp_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wold-style-cast
    $<$<BOOL:${WPP_WERROR}>:-Werror>
    $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>
    # Log lines carry source paths relative to the repository; no build holds a path of the machine.
    -ffile-prefix-map=${WPP_SOURCE_ROOT}=)
if(WPP_SANITIZE)
    target_compile_options(wpp_options INTERFACE
        -fsanitize=${WPP_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(wpp_options INTERFACE -fsanitize=${WPP_SANITIZE})
endif()
