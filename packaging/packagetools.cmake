# cpack reads this file first. It stops if the version of the packages differs from the version that
# the programs print. It also stops without dpkg-shlibdeps, because cpack would then silently make
# packages without library dependencies.

foreach(tool dpkg-shlibdeps file)
    find_program(tool_path ${tool} NO_CACHE)
    if(NOT tool_path)
        message(FATAL_ERROR "${tool} is not installed, so nobody can tell what the packages depend on. "
            "scripts/install-packages installs it.")
    endif()
    unset(tool_path)
endforeach()

if(NOT CPACK_PACKAGE_VERSION STREQUAL CPACK_QUEUE_PROGRAM_VERSION)
    message(FATAL_ERROR "The programs are of version ${CPACK_QUEUE_PROGRAM_VERSION}, so a package of version "
        "${CPACK_PACKAGE_VERSION} would not be true. Build them with that version first: "
        "cmake --preset release -DQUEUE_VERSION=${CPACK_PACKAGE_VERSION} && cmake --build --preset release")
endif()
