# Installs the build tree into a fresh prefix, then configures, builds and
# runs the outside project in consumer/ against that prefix.
#
# cmake -DBUILD_DIR=... -DCONSUMER_DIR=... -DWORK_DIR=... -DGENERATOR=...
#       -DCXX=... [-DSANITIZE=...] -P packagetest.cmake

foreach(var BUILD_DIR CONSUMER_DIR WORK_DIR GENERATOR CXX)
    if(NOT DEFINED ${var})
        message(FATAL_ERROR "packagetest.cmake needs -D${var}=...")
    endif()
endforeach()

function(run_step what)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${what} failed (${result}):\n${output}")
    endif()
    set(step_output "${output}" PARENT_SCOPE)
endfunction()

set(prefix ${WORK_DIR}/prefix)
set(consumer_build ${WORK_DIR}/consumer-build)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

run_step("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

set(configure_args -S ${CONSUMER_DIR} -B ${consumer_build} -G ${GENERATOR}
    -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_TYPE=RelWithDebInfo)
# Libraries built with sanitizers need the runtime in the program that links them.
if(SANITIZE)
    list(APPEND configure_args "-DCMAKE_CXX_FLAGS=-fsanitize=${SANITIZE}"
        "-DCMAKE_EXE_LINKER_FLAGS=-fsanitize=${SANITIZE}")
endif()
run_step("configure consumer" ${CMAKE_COMMAND} ${configure_args})
run_step("build consumer" ${CMAKE_COMMAND} --build ${consumer_build})

find_program(consumer zentconsumer PATHS ${consumer_build} NO_DEFAULT_PATH)
if(NOT consumer)
    message(FATAL_ERROR "zentconsumer was not built in ${consumer_build}")
endif()
run_step("run consumer" ${consumer})
if(NOT step_output MATCHES "consumer: zent\\.exe DemoApp:a\\.dll Xml:Cfg\\.xml key DemoApp")
    message(FATAL_ERROR "consumer printed:\n${step_output}")
endif()
message(STATUS "${step_output}")
