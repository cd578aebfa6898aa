# What an installation holds, by component: the library; what developing with it needs; the tool
# with the simulated host; and the control service, where it is built.
include(CMakePackageConfigHelpers)

install(TARGETS kzddl EXPORT kzddl-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development
)

install(DIRECTORY include/kzddl DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development
  FILES_MATCHING PATTERN "*.h")
install(FILES man/kzddl.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT development)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development
  FILES_MATCHING PATTERN "CMakeLists.txt" PATTERN "*.md" PATTERN "*.h" PATTERN "*.c*")

# The package file finds the prefix from its own place: an installation may be moved. Under /usr
# it says so: pkg-config then leaves out the directories that compilers search anyway.
file(RELATIVE_PATH prefix_from_pc ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
set(pc_prefix "\${pcfiledir}/${prefix_from_pc}")
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(pc_prefix /usr)
endif()
configure_file(cmake/kzddl.pc.in kzddl.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kzddl.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/kzddl)
install(EXPORT kzddl-targets NAMESPACE kzddl:: DESTINATION ${package_dir} COMPONENT development)
configure_package_config_file(cmake/kzddl-config.cmake.in kzddl-config.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(kzddl-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/kzddl-config.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/kzddl-config-version.cmake
  DESTINATION ${package_dir} COMPONENT development)

install(TARGETS kzddl_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
install(TARGETS kzsim LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT tool)
install(FILES man/kzddl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tool)
install(FILES completion/kzddl.bash RENAME kzddl
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tool)

if(TARGET kzcontrold)
  install(TARGETS kzcontrold RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT control)
  install(FILES man/kzcontrold.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT control)
  # Where systemd looks, whatever the libraries' directory is.
  install(FILES ${CMAKE_BINARY_DIR}/control/kzcontrold.service
    DESTINATION lib/systemd/system COMPONENT control)
endif()
