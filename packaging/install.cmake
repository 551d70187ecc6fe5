# The files of `component` that depend on the prefix: the unit, which contains the program's path,
# the files below etc/, and compressed pages and changelogs. With the prefix /usr, the files below
# etc/ are installed to /etc.

if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set(sysconf_dir /etc)
else()
    set(sysconf_dir ${CMAKE_INSTALL_PREFIX}/etc)
endif()

# install_compressed(FILE NAME FOLDER): reproducible output. Replaces @version@.
function(install_compressed file name folder)
    configure_file(${file} ${work_dir}/compressed/${component}/${name} @ONLY)
    execute_process(COMMAND gzip -9nkf ${name} WORKING_DIRECTORY ${work_dir}/compressed/${component}
        COMMAND_ERROR_IS_FATAL ANY)
    file(INSTALL ${work_dir}/compressed/${component}/${name}.gz
        DESTINATION ${CMAKE_INSTALL_PREFIX}/${folder})
endfunction()

if(component STREQUAL "queue")
    set(package queue)
    set(bin_dir ${CMAKE_INSTALL_PREFIX}/bin)
    set(doc_dir ${CMAKE_INSTALL_PREFIX}/share/doc/queue)
    configure_file(${source_dir}/queue.service.in ${work_dir}/queue.service @ONLY)
    file(INSTALL ${work_dir}/queue.service DESTINATION ${CMAKE_INSTALL_PREFIX}/lib/systemd/system)
    set(lib_dir ${CMAKE_INSTALL_PREFIX}/lib/queue)
    configure_file(${source_dir}/fleet/queue-metrics.service.in ${work_dir}/queue-metrics.service
        @ONLY)
    file(INSTALL ${work_dir}/queue-metrics.service
        DESTINATION ${CMAKE_INSTALL_PREFIX}/lib/systemd/system)
    file(INSTALL ${source_dir}/queue.logrotate DESTINATION ${sysconf_dir}/logrotate.d RENAME queue)
else()
    set(package queue-stand)
    set(manual_pages queue-stand.1)
endif()

foreach(page ${manual_pages})
    string(REGEX MATCH "[0-9]$" section ${page})
    install_compressed(${source_dir}/${page} ${page} share/man/man${section})
endforeach()
install_compressed(${source_dir}/debian/changelog changelog share/doc/${package})
file(INSTALL ${source_dir}/debian/copyright DESTINATION ${CMAKE_INSTALL_PREFIX}/share/doc/${package})
