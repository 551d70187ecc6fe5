# The libraries that the service needs. scripts/packages lists their Debian packages.

find_package(Qt6 6.4 REQUIRED COMPONENTS Core Sql Network Xml Core5Compat HttpServer)
if(QUEUE_BUILD_TESTS)
    find_package(Qt6 6.4 REQUIRED COMPONENTS Test)
endif()
find_package(CURL 7.88 REQUIRED)
# libcurl's TLS library; its per-thread state must be freed at the thread's end.
find_package(OpenSSL 3.0 REQUIRED COMPONENTS Crypto)
# The journal of deliveries writes its file directly; the queue's table goes through Qt.
find_package(SQLite3 3.35 REQUIRED)
# Decompresses answers.
find_package(ZLIB REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(INIH REQUIRED IMPORTED_TARGET inih)
pkg_check_modules(SYSTEMD IMPORTED_TARGET libsystemd)

# A till's image may contain Log4Qt; elsewhere shared/log4qt provides the same interface on top of
# log4cplus.
set(QUEUE_LOG4QT AUTO CACHE STRING 
    "Log with Log4Qt: AUTO where it is found, ON only with it, OFF without it")
set_property(CACHE QUEUE_LOG4QT PROPERTY STRINGS AUTO ON OFF)
if(NOT QUEUE_LOG4QT MATCHES "^(AUTO|ON|OFF)$")
    message(FATAL_ERROR "QUEUE_LOG4QT is '${QUEUE_LOG4QT}', and must be AUTO, ON or OFF")
endif()
set(Log4Qt_FOUND FALSE)
if(NOT QUEUE_LOG4QT STREQUAL "OFF")
    # Images install it outside the system's folders.
    find_package(Log4Qt 1.6 QUIET PATHS /opt/log4qt)
endif()
if(Log4Qt_FOUND)
    message(STATUS "Logging: Log4Qt ${Log4Qt_VERSION} from ${Log4Qt_DIR} "
                   "(-DQUEUE_LOG4QT=OFF builds without it)")
elseif(QUEUE_LOG4QT STREQUAL "ON")
    message(FATAL_ERROR "QUEUE_LOG4QT is ON, but there is no Log4Qt 1.6 in CMAKE_PREFIX_PATH, the "
                        "system's folders or /opt/log4qt")
else()
    pkg_check_modules(LOG4CPLUS REQUIRED IMPORTED_TARGET log4cplus)
    pkg_get_variable(LOG4CPLUS_PLACE log4cplus libdir)
    message(STATUS "Logging: shared/log4qt over log4cplus ${LOG4CPLUS_VERSION} from "
                   "${LOG4CPLUS_PLACE}")
endif()
