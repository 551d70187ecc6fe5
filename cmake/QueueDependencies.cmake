# What the service stands on. scripts/packages lists the Debian packages that bring it.

find_package(Qt6 6.4 REQUIRED COMPONENTS Core Sql Network Xml Core5Compat HttpServer)
if(QUEUE_BUILD_TESTS)
    find_package(Qt6 6.4 REQUIRED COMPONENTS Test)
endif()
find_package(CURL 7.88 REQUIRED)
# What libcurl does TLS with; its state of a thread has to end with the thread.
find_package(OpenSSL 3.0 REQUIRED COMPONENTS Crypto)
find_package(PkgConfig REQUIRED)
pkg_check_modules(INIH REQUIRED IMPORTED_TARGET inih)
pkg_check_modules(SYSTEMD IMPORTED_TARGET libsystemd)

# A till's image that ships Log4Qt gets it; everywhere else the slice in shared/log4qt carries the
# same interface over log4cplus.
find_package(Log4Qt 1.6 QUIET)
if(Log4Qt_FOUND)
    message(STATUS "Logging: Log4Qt ${Log4Qt_VERSION}")
else()
    pkg_check_modules(LOG4CPLUS REQUIRED IMPORTED_TARGET log4cplus)
    message(STATUS "Logging: shared/log4qt over log4cplus ${LOG4CPLUS_VERSION}")
endif()
