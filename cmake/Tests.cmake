# How a test program of this project is made; included by whoever has tests, the framework alone among them.
include_guard(GLOBAL)

find_package(GTest REQUIRED)
include(GoogleTest)

option(WPP_PRECOMPILE "Precompile what every test and the simulator include; a file that forgets to include it then goes unseen" OFF)
set(wpp_test_headers <gmock/gmock.h> <gtest/gtest.h> <chrono> <functional> <memory> <string> <thread> <vector>)

# Where networks of one's own are not to be had, the tests that need TCP port 30516 take turns.
execute_process(COMMAND unshare --net true RESULT_VARIABLE own_network_refused OUTPUT_QUIET ERROR_QUIET)

# wpp_add_tests(NAME SOURCES... [LIBRARIES ...] [PROPERTIES ...] [NEEDS_PORT])
# One test program of a room. Every case is a CTest entry of its own, run in a process of its own; PROPERTIES go
# to each entry. NEEDS_PORT is for cases that need TCP port 30516: each runs in a network of its own.
function(wpp_add_tests name)
    cmake_parse_arguments(arg "NEEDS_PORT" "" "SOURCES;LIBRARIES;PROPERTIES" ${ARGN})
    add_executable(${name} ${arg_SOURCES})
    if(arg_NEEDS_PORT)
        target_sources(${name} PRIVATE ${WPP_SOURCE_ROOT}/Tests/Support/OwnNetworkEnvironment.cpp)
        target_link_libraries(${name} PRIVATE test-support)
        if(own_network_refused)
            list(APPEND arg_PROPERTIES RESOURCE_LOCK tcp-30516)
        endif()
    endif()
    target_include_directories(${name} PRIVATE ${WPP_SOURCE_ROOT})
    target_link_libraries(${name} PRIVATE wpp_options ${arg_LIBRARIES} GTest::gmock GTest::gtest_main)
    # Tests are run once or twice and mostly wait; they compile twice as fast as they would with optimisation.
    target_compile_options(${name} PRIVATE $<$<CONFIG:Release>:-O0>)
    if(WPP_PRECOMPILE)
        target_precompile_headers(${name} PRIVATE ${wpp_test_headers})
    endif()
    gtest_discover_tests(${name} NO_PRETTY_VALUES DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120 ${arg_PROPERTIES})
endfunction()
