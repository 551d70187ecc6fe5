# Builds the service's logging against an installed package `Log4Qt`, and lets a program log.
#   cmake -DSOURCE=<project> -DWORK=<folder> [-DSCENARIOS=<file or folder>;...] -P check.cmake
# With SCENARIOS the whole service is built, and these scenarios are run with it.

function(run)
    execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE output
                    ERROR_VARIABLE output)
    set(output "${output}" PARENT_SCOPE)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${ARGV}\n${output}")
    endif()
endfunction()

# Configures the project with further arguments; `expected` is what it has to say of its log.
function(configure folder expected)
    execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE} -B ${WORK}/${folder} -G Ninja
                            -DCMAKE_BUILD_TYPE=Debug -DQUEUE_WARNINGS_AS_ERRORS=ON ${ARGN}
                    OUTPUT_VARIABLE output ERROR_VARIABLE output)
    # A message may be broken into lines.
    string(REGEX REPLACE "[ \n]+" " " output "${output}")
    if(NOT output MATCHES "${expected}")
        message(FATAL_ERROR "Configured with ${ARGN}, and not said: ${expected}\n${output}")
    endif()
endfunction()

set(package ${SOURCE}/tests/shared/log4qt/package)
# Below a root of its own stands what an image has in /opt/log4qt.
set(root ${WORK}/root)
set(installed ${root}/opt/log4qt)
file(REMOVE_RECURSE ${root} ${WORK}/choice)
run(${CMAKE_COMMAND} -S ${package} -B ${WORK}/package -G Ninja
    -DCMAKE_INSTALL_PREFIX=${installed})
run(${CMAKE_COMMAND} --build ${WORK}/package --target install)

set(few -DQUEUE_BUILD_TESTS=OFF -DQUEUE_BUILD_BENCHMARKS=OFF)
set(found "Logging: Log4Qt 1\\.6\\.0 from ${installed}/lib/cmake/Log4Qt ")
set(slice "Logging: shared/log4qt over log4cplus [0-9.]+ from /")
configure(choice "${found}" ${few} -DCMAKE_FIND_ROOT_PATH=${root})
# The choice holds for a folder that has found the package before.
configure(choice "${slice}" ${few} -DQUEUE_LOG4QT=OFF)
configure(choice "${found}" ${few} -DQUEUE_LOG4QT=ON)
configure(choice "QUEUE_LOG4QT is ON, but there is no Log4Qt 1\\.6" ${few}
          -DCMAKE_DISABLE_FIND_PACKAGE_Log4Qt=ON)
configure(choice "QUEUE_LOG4QT is 'maybe', and must be AUTO, ON or OFF" ${few} -DQUEUE_LOG4QT=maybe)

configure(queue "${found}" -DCMAKE_PREFIX_PATH=${installed})
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

file(WRITE ${WORK}/debug.properties "log4j.rootLogger=DEBUG, console\n")
set(ENV{LOG4QT_CONFIGURATION} ${WORK}/debug.properties)
run(${WORK}/queue/tests/shared/log4qt/logprobe say text)
if(NOT output MATCHES "INFO  \\[cardlab\\] text\n${line} DEBUG \\[::LoggerRepository\\] Shutting down Hierarchy\n$")
    message(FATAL_ERROR "Unexpected lines:\n${output}")
endif()

if(SCENARIOS)
    unset(ENV{LOG4QT_CONFIGURATION})
    unset(ENV{QUEUE_ROOT})
    run(${CMAKE_COMMAND} --build ${WORK}/queue --target queue scenariorunner tst_iturupsbphandler)
    run(${WORK}/queue/tests/handlers/payment/tst_iturupsbphandler)
    run(${WORK}/queue/tests/scenarios/scenariorunner --service ${WORK}/queue/queue ${SCENARIOS})
    message("${output}")
endif()
