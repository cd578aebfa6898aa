# What an installation holds: library, headers, tool, simulated host, pkg-config and CMake package.
include(CMakePackageConfigHelpers)

install(TARGETS kzddl EXPORT kzddl-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
)
install(TARGETS kzsim LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS kzddl_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY include/kzddl DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")

# The package file finds the prefix from its own place: an installation may be moved.
file(RELATIVE_PATH prefix_from_pc ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/kzddl.pc.in kzddl.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kzddl.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/kzddl)
install(EXPORT kzddl-targets NAMESPACE kzddl:: DESTINATION ${package_dir})
configure_package_config_file(cmake/kzddl-config.cmake.in kzddl-config.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(kzddl-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/kzddl-config.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/kzddl-config-version.cmake
  DESTINATION ${package_dir})
