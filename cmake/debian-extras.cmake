# Run by cpack before it makes each package. What it has staged is readable by all, whatever the
# umask says.
set(readable OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
set(open_folder ${readable} OWNER_EXECUTE GROUP_EXECUTE WORLD_EXECUTE)
set(folder ${CPACK_TEMPORARY_DIRECTORY}${CPACK_INSTALL_PREFIX})
while(NOT folder STREQUAL CPACK_TEMPORARY_DIRECTORY)
  file(CHMOD ${folder} PERMISSIONS ${open_folder})
  cmake_path(GET folder PARENT_PATH folder)
endwhile()

# A .deb also has what Debian's tools look for outside the prefix: the changelog, and the reasons
# for what lintian would report.
if(NOT CPACK_GENERATOR STREQUAL DEB)
  return()
endif()
set(documents ${CPACK_TEMPORARY_DIRECTORY}/usr/share/doc/${CPACK_PACKAGE_NAME})
set(overrides ${CPACK_TEMPORARY_DIRECTORY}/usr/share/lintian/overrides)
set(header "${CPACK_PACKAGE_NAME} (${CPACK_PACKAGE_VERSION})")
string(TIMESTAMP now "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE ${documents}/changelog
     "${header} unstable; urgency=medium\n\n  * CHANGELOG.md tells what is new.\n\n"
     " -- ${CPACK_PACKAGE_CONTACT}  ${now}\n")
execute_process(COMMAND gzip -9n ${documents}/changelog COMMAND_ERROR_IS_FATAL ANY)
file(WRITE ${overrides}/${CPACK_PACKAGE_NAME}
     "# An add-on of a vendor lies in /opt, with a prefix of its own.\n"
     "${CPACK_PACKAGE_NAME}: dir-or-file-in-opt\n"
     "# The owners have not stated a licence yet.\n"
     "${CPACK_PACKAGE_NAME}: no-copyright-file\n"
     "# An example of another language, not a part of the program.\n"
     "${CPACK_PACKAGE_NAME}: python3-script-but-no-python3-dep\n")
file(CHMOD_RECURSE ${CPACK_TEMPORARY_DIRECTORY}/usr FILE_PERMISSIONS ${readable}
     DIRECTORY_PERMISSIONS ${open_folder})
