# Debian packages, one for each component of an installation: cpack, in a build directory that is
# configured as scripts/package does. What CPack cannot say of a package itself, the two scripts
# in packaging/ add.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kzddl)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "kzddl developers <kzddl@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has a description of its own
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/documents.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/control_files.cmake)
set(CPACK_KZDDL_PACKAGING ${PROJECT_SOURCE_DIR}/packaging)
set(CPACK_KZDDL_SYMBOLS ${PROJECT_BINARY_DIR}/symbols)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_COMPONENTS_ALL library development tool)
if(TARGET kzcontrold)
  list(APPEND CPACK_COMPONENTS_ALL control)
endif()

# The revision is that of the newest change: 0local1 sorts before any of a distribution.
file(STRINGS packaging/changelog.Debian newest_change LIMIT_COUNT 1)
string(REGEX MATCH "\\((.*)-(.*)\\)" change_version "${newest_change}")
if(NOT CMAKE_MATCH_1 STREQUAL PROJECT_VERSION)
  message(FATAL_ERROR "packaging/changelog.Debian: its newest entry is not of ${PROJECT_VERSION}")
endif()
set(CPACK_DEBIAN_PACKAGE_RELEASE ${CMAKE_MATCH_2})
set(CPACK_DEBIAN_PACKAGE_SOURCE kzddl)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/${CMAKE_INSTALL_LIBDIR})

set(library_package libkzddl${PROJECT_VERSION_MAJOR})
set(release_version ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})
set(any_release "${library_package} (>= ${PROJECT_VERSION})")

# debian_package(COMPONENT NAME SECTION): a component's package, whose description is in packaging/.
macro(debian_package component name section)
  string(TOUPPER ${component} key)
  set(CPACK_DEBIAN_${key}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${key}_PACKAGE_SECTION ${section})
  file(READ packaging/${component}.description description)
  string(STRIP "${description}" CPACK_DEBIAN_${key}_DESCRIPTION)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS packaging/${component}.description)
endmacro()

debian_package(library ${library_package} libs)
# What other packages will depend on: by the names that they use, or else by the library.
file(CONFIGURE OUTPUT shlibs CONTENT "libkzddl @PROJECT_VERSION_MAJOR@ @any_release@\n" @ONLY)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA
    ${CPACK_KZDDL_SYMBOLS} ${PROJECT_BINARY_DIR}/shlibs)

debian_package(development libkzddl-dev libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${library_package} (= ${release_version})")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)

debian_package(tool kzddl admin)
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "${any_release}")

if(TARGET kzcontrold)
  debian_package(control kzcontrold admin)
  set(CPACK_DEBIAN_CONTROL_PACKAGE_DEPENDS "${any_release}")
  foreach(script IN ITEMS postinst prerm postrm)
    list(APPEND CPACK_DEBIAN_CONTROL_PACKAGE_CONTROL_EXTRA
         ${PROJECT_SOURCE_DIR}/packaging/kzcontrold/${script})
  endforeach()
endif()

include(CPack)
