# Before CPack closes the packages: strips what is in them, adds to each what Debian wants in it
# beside the installed files, and finds the names of the library that other packages may use.
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS ${CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS})
set(readable FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} key)
  set(package ${CPACK_DEBIAN_${key}_PACKAGE_NAME})
  set(stage ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}/usr)
  set(share ${stage}/share)
  set(doc ${share}/doc/${package})

  if(NOT EXISTS ${doc} AND EXISTS ${share}/doc/${CPACK_PACKAGE_NAME})
    file(RENAME ${share}/doc/${CPACK_PACKAGE_NAME} ${doc})
  endif()
  file(COPY ${CPACK_KZDDL_PACKAGING}/copyright ${CPACK_KZDDL_PACKAGING}/changelog.Debian
       DESTINATION ${doc} ${readable})
  file(GLOB pages ${share}/man/man*/*[1-8])
  run(gzip -9nf ${doc}/changelog.Debian ${pages})

  file(GLOB binaries ${stage}/bin/* ${stage}/sbin/* ${stage}/lib/*/*.so*)
  foreach(binary IN LISTS binaries)
    if(NOT IS_SYMLINK ${binary})
      run(strip --strip-unneeded --remove-section=.comment --remove-section=.note ${binary})
    endif()
  endforeach()

  if(EXISTS ${CPACK_KZDDL_PACKAGING}/${package}.lintian-overrides)
    file(COPY ${CPACK_KZDDL_PACKAGING}/${package}.lintian-overrides
         DESTINATION ${share}/lintian/overrides ${readable})
    file(RENAME ${share}/lintian/overrides/${package}.lintian-overrides
         ${share}/lintian/overrides/${package})
  endif()
endforeach()

file(GLOB library ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/library/usr/lib/*/libkzddl.so.*.*)
run(dpkg-gensymbols -p${CPACK_DEBIAN_LIBRARY_PACKAGE_NAME} -v${CPACK_PACKAGE_VERSION} -e${library}
    -I${CPACK_KZDDL_PACKAGING}/symbols -O${CPACK_KZDDL_SYMBOLS} -c4 -P${CPACK_TEMPORARY_DIRECTORY})
