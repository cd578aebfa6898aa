# After CPack has closed the packages: corrects their control files. A package with a shared
# library runs no ldconfig of its own but triggers dpkg's, and the library's packages for several
# architectures can be installed side by side.
set(tree ${CPACK_TOPLEVEL_DIRECTORY}/reopened)
set(side_by_side ${CPACK_DEBIAN_LIBRARY_PACKAGE_NAME} ${CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME})

function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET)
endfunction()

foreach(package IN LISTS CPACK_PACKAGE_FILES)
  file(REMOVE_RECURSE ${tree})
  run(dpkg-deb --raw-extract ${package} ${tree})

  foreach(script IN ITEMS postinst postrm)
    set(script ${tree}/DEBIAN/${script})
    if(EXISTS ${script})
      file(READ ${script} text)
      if(text MATCHES "\tldconfig")
        file(REMOVE ${script})
        file(WRITE ${tree}/DEBIAN/triggers "activate-noawait ldconfig\n")
        run(chmod 0644 ${tree}/DEBIAN/triggers)
      endif()
    endif()
  endforeach()

  file(READ ${tree}/DEBIAN/control text)
  string(REGEX MATCH "Package: ([^\n]*)" name "${text}")
  if(CMAKE_MATCH_1 IN_LIST side_by_side)
    string(REGEX REPLACE "(Architecture: [^\n]*\n)" "\\1Multi-Arch: same\n" text "${text}")
    file(WRITE ${tree}/DEBIAN/control "${text}")
  endif()

  run(dpkg-deb --root-owner-group --uniform-compression -Zxz --build ${tree} ${package})
endforeach()
file(REMOVE_RECURSE ${tree})
