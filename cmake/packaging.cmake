# Packages of an installation below /opt/ztm: cpack --preset release.
set(CPACK_PACKAGE_NAME ztvek)
set(CPACK_PACKAGE_VENDOR "ztvek maintainers")
set(CPACK_PACKAGE_CONTACT "ztvek maintainers <maintainers@ztvek.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "protects the credentials in keystore.conf")
set(CPACK_PACKAGE_DESCRIPTION
    "The command runvekcred replaces the passwords and PINs in keystore.conf by an
encrypted form, and the library ztvek_r reads such a file: key stores, PEM
files, a PKCS #11 token, revocation lists and OCSP. The program vekctl tells
whether the readers get every credential.")
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)

# Staged with DESTDIR, so that the command is told the final prefix.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /opt/ztm)
set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY OFF)

set(CPACK_GENERATOR DEB TGZ)
find_program(VEK_RPMBUILD rpmbuild)
if(VEK_RPMBUILD)
  list(APPEND CPACK_GENERATOR RPM)
endif()

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${VEK_LIB_DIR})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_SOURCE_DIR}/cmake/debian-extras.cmake)
set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_PACKAGE_GROUP Applications/System)

include(CPack)
