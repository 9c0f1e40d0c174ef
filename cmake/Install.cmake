# Headers, library, CMake package (find_package(Muxora), target Muxora::muxora) and pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS muxora EXPORT MuxoraTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(EXPORT MuxoraTargets NAMESPACE Muxora:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Muxora)

configure_package_config_file(cmake/MuxoraConfig.cmake.in ${CMAKE_CURRENT_BINARY_DIR}/MuxoraConfig.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Muxora)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/MuxoraConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/MuxoraConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/MuxoraConfigVersion.cmake
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Muxora)

# The prefix is stated as seen from the file itself, so that `cmake --install --prefix` and a moved tree work.
file(RELATIVE_PATH MUXORA_PREFIX_FROM_PC /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/muxora.pc.in ${CMAKE_CURRENT_BINARY_DIR}/muxora.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/muxora.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
