# Packages of an installation below /opt/ztm: cpack --preset release. A .deb and an .rpm are split
# into what runs and what programs are built with; the .tar.gz has both.
set(CPACK_PACKAGE_NAME ztvek)
set(CPACK_PACKAGE_VENDOR "ztvek maintainers")
set(CPACK_PACKAGE_CONTACT "ztvek maintainers <maintainers@ztvek.invalid>")
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "encrypted credentials in keystore.conf")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "The command runvekcred replaces the passwords and PINs in keystore.conf by an
encrypted form, and the library ztvek_r reads such a file: key stores, PEM
files, a PKCS #11 token, revocation lists and OCSP. The program vekctl encrypts
and changes credentials, and tells whether the readers get every one.")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "Headers, manual pages, pkg-config file, CMake package and an example for
programs in C and C++ that read keystore.conf with the library ztvek_r.")

# Staged with DESTDIR, so that the command is told the final prefix.
set(CPACK_SET_DESTDIR ON)
set(CPACK_PACKAGE_RELOCATABLE OFF)
set(CPACK_INSTALL_PREFIX /opt/ztm)
set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY OFF)

set(CPACK_GENERATOR DEB TGZ)
find_program(VEK_RPMBUILD rpmbuild)
if(VEK_RPMBUILD)
  list(APPEND CPACK_GENERATOR RPM)
endif()
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_SOURCE_DIR}/cmake/package-time.cmake)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_SOURCE_DIR}/cmake/package-extras.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_SOURCE_DIR}/cmake/package-modes.cmake)
set(CPACK_VEK_LIBDIR ${CMAKE_INSTALL_LIBDIR})
set(CPACK_VEK_CONTAINED CLI11=${CLI11_VERSION} nlohmann_json=${nlohmann_json_VERSION})
if(VEK_STATIC_RUNTIME)
  list(APPEND CPACK_VEK_CONTAINED libstdc++=${CMAKE_CXX_COMPILER_VERSION})
endif()

# A program that links the library depends on the version that it was built with, or a later one.
set(control ${CMAKE_SOURCE_DIR}/cmake/debian)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ztvek)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${VEK_LIB_DIR})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${control}/conffiles ${control}/triggers)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ztvek-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "ztvek (= ${PROJECT_VERSION})")
# 1.0.0 was one package.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_BREAKS "ztvek (<< 1.1.0)")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_REPLACES "ztvek (<< 1.1.0)")

set(CPACK_RPM_COMPONENT_INSTALL ON)
set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_PACKAGE_LICENSE "not stated")
set(CPACK_RPM_PACKAGE_GROUP Applications/System)
set(CPACK_RPM_RUNTIME_PACKAGE_NAME ztvek)
set(CPACK_RPM_RUNTIME_USER_FILELIST "%config /etc/ld.so.conf.d/ztvek.conf")
set(CPACK_RPM_RUNTIME_POST_INSTALL_SCRIPT_FILE ${CMAKE_SOURCE_DIR}/cmake/rpm-ldconfig)
set(CPACK_RPM_RUNTIME_POST_UNINSTALL_SCRIPT_FILE ${CMAKE_SOURCE_DIR}/cmake/rpm-ldconfig)
set(CPACK_RPM_DEVELOPMENT_PACKAGE_NAME ztvek-devel)
set(CPACK_RPM_DEVELOPMENT_PACKAGE_REQUIRES "ztvek = ${PROJECT_VERSION}")
# Folders of the system belong to no package of ours.
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION
    /etc/ld.so.conf.d /opt /usr/share/bash-completion /usr/share/bash-completion/completions
    /usr/share/cmake /usr/share/man /usr/share/man/man1 /usr/share/man/man3 /usr/share/man/man5
    /usr/share/pkgconfig)
set(CPACK_RPM_SPEC_MORE_DEFINE "%define _buildhost localhost
%define _build_id_links none
%define use_source_date_epoch_as_buildtime 1
%define clamp_mtime_to_source_date_epoch 1")

include(CPack)
