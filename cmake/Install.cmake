# Headers, library, CMake package (find_package(Muxora), target Muxora::muxora) and pkg-config file. The components are
# the packages of cmake/Packages.cmake.
include(CMakePackageConfigHelpers)

set(MUXORA_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Muxora)

install(TARGETS muxora EXPORT MuxoraTargets
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT library
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development FILES_MATCHING PATTERN "*.h")
install(EXPORT MuxoraTargets NAMESPACE Muxora:: DESTINATION ${MUXORA_CMAKE_DIR} COMPONENT development)

# What a program of C has to link beside a static library: the C++ runtime of the compiler that built it.
set(MUXORA_CXX_RUNTIME)
if(NOT BUILD_SHARED_LIBS)
    foreach(library IN LISTS CMAKE_CXX_IMPLICIT_LINK_LIBRARIES)
        if(library MATCHES "^(stdc\\+\\+|c\\+\\+|c\\+\\+abi|m)$" AND NOT library IN_LIST MUXORA_CXX_RUNTIME)
            list(APPEND MUXORA_CXX_RUNTIME ${library})
        endif()
    endforeach()
endif()

configure_package_config_file(cmake/MuxoraConfig.cmake.in ${CMAKE_CURRENT_BINARY_DIR}/MuxoraConfig.cmake
    INSTALL_DESTINATION ${MUXORA_CMAKE_DIR} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/MuxoraConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/MuxoraConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/MuxoraConfigVersion.cmake
    DESTINATION ${MUXORA_CMAKE_DIR} COMPONENT development)

# The prefix is stated as seen from the file itself, so that `cmake --install --prefix` and a moved tree work.
file(RELATIVE_PATH MUXORA_PREFIX_FROM_PC /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
set(MUXORA_PC_CFLAGS)
set(MUXORA_PC_LIBS_PRIVATE)
if(NOT BUILD_SHARED_LIBS)
    set(MUXORA_PC_CFLAGS " -DMUXORA_STATIC_DEFINE")
    foreach(library IN LISTS MUXORA_CXX_RUNTIME)
        list(APPEND MUXORA_PC_LIBS_PRIVATE -l${library})
    endforeach()
    list(APPEND MUXORA_PC_LIBS_PRIVATE ${CMAKE_THREAD_LIBS_INIT})
    string(REPLACE ";" " " MUXORA_PC_LIBS_PRIVATE "${MUXORA_PC_LIBS_PRIVATE}")
endif()
configure_file(cmake/muxora.pc.in ${CMAKE_CURRENT_BINARY_DIR}/muxora.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/muxora.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
