# Read by cpack before it begins. Without dpkg-shlibdeps it would make packages that depend on no library,
# and say nothing.

foreach(tool dpkg-shlibdeps file)
    find_program(tool_path ${tool} NO_CACHE)
    if(NOT tool_path)
        message(FATAL_ERROR "${tool} is not installed, so nobody can tell what the packages depend on. "
            "scripts/install-packages installs it.")
    endif()
    unset(tool_path)
endforeach()
