# Run by cpack before it makes the packages of a generator. What it has staged becomes readable by
# all, whatever the umask says, and gets links where the system looks and a bill of materials.
set(prefix ${CPACK_INSTALL_PREFIX})

# add_links STAGE: as below the prefix, so below /usr. Manual pages are compressed there.
function(add_links stage)
  execute_process(COMMAND gzip -9nr ${stage}${prefix}/share/man COMMAND_ERROR_IS_FATAL ANY)
  foreach(folder bin share/bash-completion share/cmake share/man)
    file(GLOB_RECURSE files RELATIVE ${stage}${prefix} ${stage}${prefix}/${folder}/*)
    foreach(file ${files})
      cmake_path(GET file PARENT_PATH parent)
      file(MAKE_DIRECTORY ${stage}/usr/${parent})
      file(CREATE_LINK ${prefix}/${file} ${stage}/usr/${file} SYMBOLIC)
    endforeach()
  endforeach()
endfunction()

# The folder of the libraries has a name of its own, so the system is told of it. A pkg-config file
# does not see through a link.
function(add_library_folder component stage)
  if(component STREQUAL runtime)
    file(WRITE ${stage}/etc/ld.so.conf.d/ztvek.conf "${prefix}/${CPACK_VEK_LIBDIR}\n")
  else()
    file(READ ${stage}${prefix}/${CPACK_VEK_LIBDIR}/pkgconfig/ztvek.pc text)
    string(REPLACE "\${pcfiledir}/../.." ${prefix} text "${text}")
    file(WRITE ${stage}/usr/share/pkgconfig/ztvek.pc "${text}")
  endif()
endfunction()

# What Debian's tools look for: the changelog, and the reasons for what lintian would report.
function(add_debian_files package stage)
  set(changelog ${stage}/usr/share/doc/${package}/changelog)
  string(TIMESTAMP now "%a, %d %b %Y %H:%M:%S +0000" UTC)
  file(WRITE ${changelog}
       "${package} (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium\n\n"
       "  * CHANGELOG.md tells what is new.\n\n -- ${CPACK_PACKAGE_CONTACT}  ${now}\n")
  execute_process(COMMAND gzip -9n ${changelog} COMMAND_ERROR_IS_FATAL ANY)
  configure_file(${CMAKE_CURRENT_FUNCTION_LIST_DIR}/debian/${package}.lintian-overrides
                 ${stage}/usr/share/lintian/overrides/${package} COPYONLY)
endfunction()

function(add_bill_of_materials package stage)
  if(package STREQUAL ztvek)
    set(contained ${CPACK_VEK_CONTAINED})
  endif()
  execute_process(
    COMMAND ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/../tools/bill-of-materials ${package}
            ${CPACK_PACKAGE_VERSION} ${stage} ${contained} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

if(CPACK_GENERATOR STREQUAL TGZ)
  add_bill_of_materials(ztvek ${CPACK_TEMPORARY_DIRECTORY})
else()
  set(kind_of_DEB DEBIAN)
  set(kind_of_RPM RPM)
  foreach(component ${CPACK_COMPONENTS_ALL})
    string(TOUPPER ${component} name)
    set(package ${CPACK_${kind_of_${CPACK_GENERATOR}}_${name}_PACKAGE_NAME})
    set(stage ${CPACK_TEMPORARY_DIRECTORY}/${component})
    add_links(${stage})
    add_library_folder(${component} ${stage})
    if(CPACK_GENERATOR STREQUAL DEB)
      add_debian_files(${package} ${stage})
    endif()
    add_bill_of_materials(${package} ${stage})
  endforeach()
endif()
# chmod passes over the links, which lead to what this machine has installed.
execute_process(COMMAND chmod -R u=rwX,go=rX ${CPACK_TEMPORARY_DIRECTORY}
                COMMAND_ERROR_IS_FATAL ANY)
# Source files may be older than the commit.
execute_process(COMMAND find ${CPACK_TEMPORARY_DIRECTORY} -exec touch --no-dereference
                        --date=@$ENV{SOURCE_DATE_EPOCH} {} + COMMAND_ERROR_IS_FATAL ANY)
