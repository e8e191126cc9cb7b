# Run by cpack when it has made the packages of a generator: what follows the umask or the user who
# packs is made the same for all.
if(CPACK_GENERATOR STREQUAL DEB)
  foreach(package ${CPACK_PACKAGE_FILES})
    execute_process(
      COMMAND ar x ${package}
      COMMAND_ERROR_IS_FATAL ANY WORKING_DIRECTORY ${CPACK_TEMPORARY_DIRECTORY})
    file(REMOVE ${package})
    execute_process(
      COMMAND ar rcD ${package} debian-binary control.tar.gz data.tar.gz
      COMMAND_ERROR_IS_FATAL ANY WORKING_DIRECTORY ${CPACK_TEMPORARY_DIRECTORY})
  endforeach()
elseif(CPACK_GENERATOR STREQUAL TGZ)
  execute_process(
    COMMAND tar --create --sort=name --owner=root:0 --group=root:0
            --mtime=@$ENV{SOURCE_DATE_EPOCH} -C ${CPACK_TEMPORARY_DIRECTORY} opt
    COMMAND gzip -9n
    OUTPUT_FILE ${CPACK_PACKAGE_FILES} COMMAND_ERROR_IS_FATAL ANY)
endif()
