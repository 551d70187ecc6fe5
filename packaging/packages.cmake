# `cpack` in the build folder writes queue_<version>_<architecture>.deb and the package queue-stand.

set(CPACK_GENERATOR DEB)
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_SOURCE_DIR}/packagetools.cmake)
set(CPACK_PACKAGE_NAME queue)
# The version that the programs print; packagetools.cmake compares it with the version of the
# packages.
set(CPACK_QUEUE_PROGRAM_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR queue)
set(CPACK_PACKAGE_CONTACT "The makers of queue <queue@makers.tallo.example>" CACHE STRING
    "Who answers for the packages, as a name and an address")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_SET_DESTDIR OFF)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL queue)
if(TARGET queue-stand)
    list(APPEND CPACK_COMPONENTS_ALL stand)
endif()
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)

set(CPACK_DEBIAN_QUEUE_PACKAGE_NAME queue)
set(CPACK_DEBIAN_QUEUE_PACKAGE_SECTION net)
set(CPACK_COMPONENT_QUEUE_DESCRIPTION
    "delivery of a till's queued messages
Polls the table into which the till application writes what the outside
world has to be told, and hands each message to the service it is meant
for, now or once that service answers again: loyalty platforms, payment
and bank services, fiscal and retail back-ends, over HTTP and TCP.")
# Database drivers are loaded at run time. systemd's tools create the account and the folders; on
# machines without systemd they are separate packages.
set(CPACK_DEBIAN_QUEUE_PACKAGE_DEPENDS
    "libqt6sql6-sqlite, openssl, systemd | systemd-standalone-sysusers, systemd | systemd-standalone-tmpfiles")
# Not "Recommends", which apt would install: logrotate brings cron and a mail server, and only tills
# with a database server need the driver. `queuectl doctor` names the driver when the settings need
# it.
set(CPACK_DEBIAN_QUEUE_PACKAGE_SUGGESTS "libqt6sql6-mysql, logrotate, mariadb-server, sqlite3")
set(CPACK_DEBIAN_QUEUE_PACKAGE_CONTROL_EXTRA
    ${CMAKE_CURRENT_SOURCE_DIR}/debian/conffiles
    ${CMAKE_CURRENT_SOURCE_DIR}/debian/postinst
    ${CMAKE_CURRENT_SOURCE_DIR}/debian/postrm
    ${CMAKE_CURRENT_SOURCE_DIR}/debian/prerm)

set(CPACK_DEBIAN_STAND_PACKAGE_NAME queue-stand)
set(CPACK_DEBIAN_STAND_PACKAGE_SECTION net)
set(CPACK_COMPONENT_STAND_DESCRIPTION
    "outside services of a till's queue, played on one machine
Puts sample messages of all types or of chosen ones into the table of the
service queue, plays the services that they are meant for over HTTP, HTTPS
and TCP, also failing ones, and shows each exchange as it happens.")
set(CPACK_DEBIAN_STAND_PACKAGE_DEPENDS "libqt6sql6-sqlite, openssl")
set(CPACK_DEBIAN_STAND_PACKAGE_RECOMMENDS "queue")

include(CPack)
