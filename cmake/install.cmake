# Installation into any prefix: cmake --install BUILD --prefix PREFIX. Included behind the targets.
# What a program that uses the library is built with is the component development, and a package of
# its own.
include(CMakePackageConfigHelpers)
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME runtime)

# What is installed is readable by all, whatever the umask says and however the clone was made.
set(vek_readable OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
set(vek_executable ${vek_readable} OWNER_EXECUTE GROUP_EXECUTE WORLD_EXECUTE)

set(vek_public_headers lib/vek/ztvek.h platform/ztpbe.h platform/ztsvc.h)
set(vek_package_dir ${CMAKE_INSTALL_DATADIR}/cmake/ztvek)

# Files get their modes from install() itself. For folders it asks the umask, so those that are
# missing are made first.
set(folders_of_runtime
    ${CMAKE_INSTALL_BINDIR} ${CMAKE_INSTALL_LIBDIR} ${CMAKE_INSTALL_DOCDIR}
    ${CMAKE_INSTALL_MANDIR}/man1 ${CMAKE_INSTALL_MANDIR}/man5
    ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
set(folders_of_development
    ${CMAKE_INSTALL_INCLUDEDIR} ${CMAKE_INSTALL_LIBDIR}/pkgconfig ${vek_package_dir}
    ${CMAKE_INSTALL_DOCDIR}/examples ${CMAKE_INSTALL_MANDIR}/man3)
foreach(component runtime development)
  install(
    CODE "foreach(folder ${folders_of_${component}})
    cmake_path(ABSOLUTE_PATH folder BASE_DIRECTORY \"\${CMAKE_INSTALL_PREFIX}\"
               OUTPUT_VARIABLE folder)
    cmake_path(ABSOLUTE_PATH folder OUTPUT_VARIABLE folder)
    set(missing \"\$ENV{DESTDIR}\${folder}\")
    set(made \"\")
    while(NOT EXISTS \"\${missing}\")
      list(APPEND made \"\${missing}\")
      cmake_path(GET missing PARENT_PATH missing)
    endwhile()
    foreach(folder IN LISTS made)
      file(MAKE_DIRECTORY \"\${folder}\")
      file(CHMOD \"\${folder}\" PERMISSIONS ${vek_executable})
    endforeach()
  endforeach()"
    COMPONENT ${component})
endforeach()

install(TARGETS runvekcred vekctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(
  TARGETS ztvek_r ztmcs_r ztxzu_r
  EXPORT ztvekTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} NAMELINK_COMPONENT development
  INCLUDES
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES completion/runvekcred completion/vekctl
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES docs/man/runvekcred.1 docs/man/vekctl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES docs/man/keystore.conf.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5)
install(FILES docs/encrypted-value.md docs/keys.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(
  DIRECTORY examples
  DESTINATION ${CMAKE_INSTALL_DOCDIR}
  FILE_PERMISSIONS ${vek_readable}
  DIRECTORY_PERMISSIONS ${vek_executable}
  REGEX "/(CMakeLists.txt|read_[^/]*)$" EXCLUDE)

# The build folder mirrors the headers too.
install(FILES ${vek_public_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
foreach(header ${vek_public_headers})
  cmake_path(GET header FILENAME name)
  configure_file(${header} ${CMAKE_BINARY_DIR}/${CMAKE_INSTALL_INCLUDEDIR}/${name} COPYONLY)
endforeach()

# For callers with CMake: find_package(ztvek), target ztvek::ztvek.
set_target_properties(ztvek_r PROPERTIES EXPORT_NAME ztvek)
install(EXPORT ztvekTargets NAMESPACE ztvek:: DESTINATION ${vek_package_dir}
        COMPONENT development)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/cmake/ztvekConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES cmake/ztvekConfig.cmake ${CMAKE_BINARY_DIR}/cmake/ztvekConfigVersion.cmake
        DESTINATION ${vek_package_dir} COMPONENT development)

# For callers with pkg-config.
configure_file(cmake/ztvek.pc.in ${CMAKE_BINARY_DIR}/cmake/ztvek.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/cmake/ztvek.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT development)

install(FILES examples/CMakeLists.txt examples/read_password.c
        DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT development)
install(PROGRAMS examples/read_section.py DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples
        COMPONENT development)

# Each function that ztvek(3) names at its head has a page of its own, which leads there.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS docs/man/ztvek.3)
file(STRINGS docs/man/ztvek.3 names REGEX "^\\.Nm ")
foreach(name ${names})
  string(REGEX REPLACE "^\\.Nm ([A-Za-z0-9_]+).*" "${CMAKE_BINARY_DIR}/man3/\\1.3" alias "${name}")
  file(WRITE ${alias} ".so man3/ztvek.3\n")
  list(APPEND aliases ${alias})
endforeach()
install(FILES docs/man/ztvek.3 ${aliases} DESTINATION ${CMAKE_INSTALL_MANDIR}/man3
        COMPONENT development)

# The command checks the installation that it belongs to, so it is told the prefix. A staging folder
# (DESTDIR) is no part of that path.
install(
  CODE "cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_PREFIX OUTPUT_VARIABLE prefix)
  execute_process(
    COMMAND \"${CMAKE_SOURCE_DIR}/tools/set-installation-path\"
            \"\$ENV{DESTDIR}\${prefix}/${CMAKE_INSTALL_BINDIR}/runvekcred\" \"\${prefix}\"
    COMMAND_ERROR_IS_FATAL ANY)")
