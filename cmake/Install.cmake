# Programs, library, headers, resources, and what other builds need to find them.
include(CMakePackageConfigHelpers)

target_compile_features(vornex INTERFACE cxx_std_20)
# The programs find the library wherever both are installed or moved to.
file(RELATIVE_PATH lib_from_bin ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(vornex_command PROPERTIES INSTALL_RPATH "$ORIGIN/${lib_from_bin}")

install(TARGETS vornex EXPORT VornexSDKTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS vornex_media RUNTIME DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/vornex)
install(TARGETS vornex_command vornexd RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY include/vornex DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(DIRECTORY resources/ DESTINATION ${CMAKE_INSTALL_DATADIR}/vornex)
# What file managers show for a package folder.
install(FILES packaging/Library.svg DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/VornexSDK)
install(EXPORT VornexSDKTargets NAMESPACE VornexSDK:: DESTINATION ${package_folder})
configure_package_config_file(cmake/VornexSDKConfig.cmake.in VornexSDKConfig.cmake
  INSTALL_DESTINATION ${package_folder} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(VornexSDKConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/VornexSDKConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/VornexSDKConfigVersion.cmake
  DESTINATION ${package_folder})

# The prefix is named relative to the file, so that an installation may be moved.
file(RELATIVE_PATH prefix_from_pkgconfig
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/vornex.pc.in vornex.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vornex.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Units for the service manager of a user's session; the user enables them: systemctl --user enable vornexd.socket
install(FILES packaging/vornexd.socket DESTINATION lib/systemd/user)
install(CODE "
  set(VORNEXD \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/vornexd\")
  configure_file(\"${PROJECT_SOURCE_DIR}/packaging/vornexd.service.in\"
    \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/lib/systemd/user/vornexd.service\" @ONLY)")
