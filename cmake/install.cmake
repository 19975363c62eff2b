# What a host needs: header, library, CMake package and pkg-config file. Component wkldriver.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS wkldriver EXPORT wkldriver_targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT wkldriver NAMELINK_COMPONENT wkldriver
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${PROJECT_SOURCE_DIR}/include/wkldriver.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT wkldriver)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/wkldriver)
install(EXPORT wkldriver_targets NAMESPACE wkldriver:: FILE wkldriver-config.cmake DESTINATION ${package_folder} COMPONENT wkldriver)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/wkldriver-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/wkldriver-config-version.cmake DESTINATION ${package_folder} COMPONENT wkldriver)

# The folders of the .pc file are told relative to its own place, so that an installed tree can be moved.
file(RELATIVE_PATH pc_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${PROJECT_SOURCE_DIR}/cmake/wkldriver.pc.in ${CMAKE_BINARY_DIR}/wkldriver.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/wkldriver.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT wkldriver)
