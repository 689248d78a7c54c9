# find_package(tovik) and pkg-config for outside projects. Both find everything from where they lie, so that
# an installed tree may be moved.
include(CMakePackageConfigHelpers)

install(TARGETS tovikwin32 EXPORT tovik-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tovik FILES_MATCHING PATTERN "*.h")
install(EXPORT tovik-targets NAMESPACE tovik:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tovik)

configure_package_config_file(cmake/tovik-config.cmake.in ${PROJECT_BINARY_DIR}/tovik-config.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tovik)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tovik-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tovik-config.cmake ${PROJECT_BINARY_DIR}/tovik-config-version.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tovik)

file(RELATIVE_PATH TOVIK_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(cmake/tovik.pc.in ${PROJECT_BINARY_DIR}/tovik.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tovik.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
