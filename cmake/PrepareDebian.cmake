# Run by CPack on the staged tree before it is packed: what Debian wants of files that `cmake --install` lays down plain.
file(GLOB_RECURSE pages "${CPACK_TEMPORARY_DIRECTORY}/usr/share/man/*.[1-9]")
file(GLOB_RECURSE changelogs "${CPACK_TEMPORARY_DIRECTORY}/usr/share/doc/*/changelog")
if(pages OR changelogs)
    execute_process(COMMAND gzip -n9 ${pages} ${changelogs} COMMAND_ERROR_IS_FATAL ANY)
endif()
file(GLOB_RECURSE archives "${CPACK_TEMPORARY_DIRECTORY}/usr/lib/*.a")
foreach(archive ${archives})
    execute_process(COMMAND strip --strip-debug --remove-section=.comment --remove-section=.note
                            --enable-deterministic-archives "${archive}" COMMAND_ERROR_IS_FATAL ANY)
endforeach()
# CPack makes folders with the caller's mask; the package's are everybody's to read.
execute_process(COMMAND chmod -R u=rwX,go=rX "${CPACK_TEMPORARY_DIRECTORY}/usr" COMMAND_ERROR_IS_FATAL ANY)
