# What is precompiled where one builds everything.
include_guard()

option(WPP_PRECOMPILE "Precompile what every test and the simulator include; a file that forgets to include it then goes unseen" OFF)

# g++ takes in a whole precompiled header for each source, so that a large one costs more than it saves; clang++ reads
# of it what is asked for. It compiles the virtual functions that stand in one again for each source, though: a header
# with many of these, such as that of a command line's parser, is left to the few sources that use it.
set(wpp_precompiles_large_headers FALSE)
if(WPP_PRECOMPILE AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    set(wpp_precompiles_large_headers TRUE)
endif()
