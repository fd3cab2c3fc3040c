# `cmake --install`: the executable, the floors below it with their headers, and what find_package(orvexa) needs.
include(CMakePackageConfigHelpers)
set(ORVEXA_INSTALL_CMAKE ${CMAKE_INSTALL_LIBDIR}/cmake/orvexa)

install(TARGETS orvexa_command RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS orvexa_common orvexa_model orvexa_controller
        EXPORT orvexa_floors
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT orvexa_floors NAMESPACE orvexa:: FILE orvexaTargets.cmake DESTINATION ${ORVEXA_INSTALL_CMAKE})

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/orvexaConfig.cmake.in ${PROJECT_BINARY_DIR}/orvexaConfig.cmake
                              INSTALL_DESTINATION ${ORVEXA_INSTALL_CMAKE})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/orvexaConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/orvexaConfig.cmake ${PROJECT_BINARY_DIR}/orvexaConfigVersion.cmake
              ${CMAKE_CURRENT_LIST_DIR}/FindOrvexaLibraries.cmake
        DESTINATION ${ORVEXA_INSTALL_CMAKE})
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
