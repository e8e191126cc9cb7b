# Run by cpack when it has made the packages of a generator. The members of a .deb have got their
# modes from the umask; ar gives them the same on all machines.
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
endif()
