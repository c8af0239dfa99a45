# CPack runs this ahead of packing: directories are open to all, whatever the umask was when they were made.
file(GLOB_RECURSE entries LIST_DIRECTORIES ON "${CPACK_TEMPORARY_DIRECTORY}/*")
foreach(entry IN LISTS entries)
    if(IS_DIRECTORY "${entry}" AND NOT IS_SYMLINK "${entry}")
        file(CHMOD "${entry}" PERMISSIONS
            OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    endif()
endforeach()
