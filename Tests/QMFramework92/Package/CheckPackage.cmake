# Installs the framework of BUILD_TREE into a fresh directory, builds EXAMPLE against the package and runs it, and
# compiles each installed header alone.
set(work ${TEST_DIRECTORY}/package)
file(REMOVE_RECURSE ${work})

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        list(JOIN ARGN " " command)
        message(FATAL_ERROR "${command} failed:\n${output}")
    endif()
endfunction()

function(build_user source binary)
    run(${CMAKE_COMMAND} -S ${source} -B ${binary} -G ${GENERATOR} -DCMAKE_CXX_COMPILER=${COMPILER}
        -DCMAKE_PREFIX_PATH=${work}/installed)
    run(${CMAKE_COMMAND} --build ${binary})
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_TREE} --prefix ${work}/installed --component qmframework)

build_user(${EXAMPLE} ${work}/example)
run(${CMAKE_COMMAND} -DPROGRAM=${work}/example/heartbeat -DEMULATOR=${EMULATOR}
    -P ${CMAKE_CURRENT_LIST_DIR}/RunHeartbeat.cmake)

file(GLOB_RECURSE headers RELATIVE ${work}/installed/include/QMFramework92 ${work}/installed/include/QMFramework92/*.h)
list(LENGTH headers count)
if(count LESS 30)
    message(FATAL_ERROR "only ${count} headers are installed")
endif()
set(sources "")
foreach(header IN LISTS headers)
    string(MAKE_C_IDENTIFIER ${header} name)
    file(WRITE ${work}/headers/${name}.cpp "#include \"${header}\"\n")
    string(APPEND sources " ${name}.cpp")
endforeach()
file(WRITE ${work}/headers/CMakeLists.txt
    "cmake_minimum_required(VERSION 3.25)\nproject(Headers LANGUAGES CXX)\nfind_package(QMFramework92 REQUIRED)\n"
    "add_library(headers OBJECT${sources})\ntarget_link_libraries(headers PRIVATE QMFramework92::qmframework)\n"
    "target_compile_options(headers PRIVATE -Wall -Wextra -Wpedantic -Werror)\n")
build_user(${work}/headers ${work}/headers-build)
file(REMOVE_RECURSE ${work})
