# Builds the service's logging against an installed package `Log4Qt`, and lets a program log.
#   cmake -DSOURCE=<project> -DWORK=<folder> -P check.cmake

function(run)
    execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE output
                    ERROR_VARIABLE output)
    set(output "${output}" PARENT_SCOPE)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${ARGV}\n${output}")
    endif()
endfunction()

set(package ${SOURCE}/tests/shared/log4qt/package)
file(REMOVE_RECURSE ${WORK}/installed)
run(${CMAKE_COMMAND} -S ${package} -B ${WORK}/package -G Ninja
    -DCMAKE_INSTALL_PREFIX=${WORK}/installed)
run(${CMAKE_COMMAND} --build ${WORK}/package --target install)

run(${CMAKE_COMMAND} -S ${SOURCE} -B ${WORK}/queue -G Ninja -DCMAKE_BUILD_TYPE=Debug
    -DQUEUE_WARNINGS_AS_ERRORS=ON -DLog4Qt_DIR=${WORK}/installed/lib/cmake/Log4Qt)
if(NOT output MATCHES "Logging: Log4Qt 1\\.6\\.0")
    message(FATAL_ERROR "The package was not taken:\n${output}")
endif()
run(${CMAKE_COMMAND} --build ${WORK}/queue --target logprobe tst_logcapture)

run(${WORK}/queue/tests/support/tst_logcapture)

set(line "[0-9-]+ [0-9:]+,[0-9]+")
set(ENV{QUEUE_ROOT} ${WORK})
unset(ENV{LOG4QT_CONFIGURATION})
run(${WORK}/queue/tests/shared/log4qt/logprobe levels)
if(NOT output MATCHES "^${line} INFO  \\[cardlab\\] информация\n${line} WARN  [^\n]*\n${line} ERROR [^\n]*\n${line} INFO  [^\n]*\n$")
    message(FATAL_ERROR "Unexpected lines:\n${output}")
endif()

set(ENV{LOG4QT_CONFIGURATION} /missing.properties)
run(${WORK}/queue/tests/shared/log4qt/logprobe say text)
if(NOT output MATCHES "^${line} WARN  \\[queue\\] [^\n]*'/missing.properties'[^\n]*: refused /missing.properties\n${line} INFO  \\[cardlab\\] text\n$")
    message(FATAL_ERROR "Unexpected lines:\n${output}")
endif()
