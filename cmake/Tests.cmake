# How a test program of this project is made; included by whoever has tests, the framework alone among them.
include_guard(GLOBAL)

find_package(GTest REQUIRED)
include(GoogleTest)
include(${CMAKE_CURRENT_LIST_DIR}/Precompile.cmake)

# What all test programs precompile together; it has the options that each of them has.
if(WPP_PRECOMPILE)
    file(CONFIGURE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/test-headers.cpp CONTENT "")
    add_library(test-headers OBJECT ${CMAKE_CURRENT_BINARY_DIR}/test-headers.cpp)
    target_link_libraries(test-headers PRIVATE wpp_options GTest::gmock)
    target_precompile_headers(test-headers
        PRIVATE <gmock/gmock.h> <gtest/gtest.h> <chrono> <functional> <memory> <string> <thread> <vector>)
    if(wpp_precompiles_large_headers AND TARGET simulator-core)
        target_precompile_headers(test-headers PRIVATE <nlohmann/json.hpp> <map>)
    endif()
endif()

# Where networks of one's own are not to be had, the tests that need TCP port 30516 take turns.
execute_process(COMMAND unshare --net true RESULT_VARIABLE own_network_refused OUTPUT_QUIET ERROR_QUIET)

# wpp_add_tests(NAME SOURCES... [LIBRARIES ...] [PROPERTIES ...] [NEEDS_PORT] [SHARES_PROCESS])
# One test program of a room. Every case is a CTest entry of its own, run in a process of its own; PROPERTIES go
# to each entry. NEEDS_PORT is for cases that need TCP port 30516: each runs in a network of its own. SHARES_PROCESS is
# for short cases that do not mind company: in a cross build, where the emulator takes longer to start than most of them
# to run, a quarter of them is one entry, run in one process.
function(wpp_add_tests name)
    cmake_parse_arguments(arg "NEEDS_PORT;SHARES_PROCESS" "" "SOURCES;LIBRARIES;PROPERTIES" ${ARGN})
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
    if(WPP_PRECOMPILE)
        target_precompile_headers(${name} REUSE_FROM test-headers)
        # The helpers are small and include little of it.
        get_target_property(helpers ${name} SOURCES)
        list(FILTER helpers INCLUDE REGEX "Tests/Support/")
        set_source_files_properties(${helpers} PROPERTIES SKIP_PRECOMPILE_HEADERS ON)
    endif()
    if(arg_SHARES_PROCESS AND CMAKE_CROSSCOMPILING)
        foreach(quarter RANGE 3)
            add_test(NAME ${name}.Quarter${quarter} COMMAND ${name})
            set_tests_properties(${name}.Quarter${quarter} PROPERTIES
                TIMEOUT 300 ENVIRONMENT "GTEST_TOTAL_SHARDS=4;GTEST_SHARD_INDEX=${quarter}" ${arg_PROPERTIES})
        endforeach()
    else()
        gtest_discover_tests(${name} NO_PRETTY_VALUES DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120 ${arg_PROPERTIES})
    endif()
endfunction()
