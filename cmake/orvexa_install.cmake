# `cmake --install`: the two programs, the desktop entry and its icon, the floors below them with their headers, and what
# find_package(orvexa) needs.
include(CMakePackageConfigHelpers)
set(ORVEXA_INSTALL_CMAKE ${CMAKE_INSTALL_LIBDIR}/cmake/orvexa)

install(TARGETS orvexa_command orvexa_desktop RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${PROJECT_SOURCE_DIR}/packaging/orvexa-desktop.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/orvexa-desktop.svg
        DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
# What the command says about itself: asked at install time, so that a build of the command alone can be installed.
set(ORVEXA_DOCUMENTS ${PROJECT_BINARY_DIR}/documents)
install(
  CODE "
  file(MAKE_DIRECTORY \"${ORVEXA_DOCUMENTS}\")
  foreach(what IN ITEMS \"completion;bash\" man)
    list(GET what 0 name)
    execute_process(COMMAND \"$<TARGET_FILE:orvexa_command>\" \${what} OUTPUT_FILE \"${ORVEXA_DOCUMENTS}/\${name}\"
                    COMMAND_ERROR_IS_FATAL ANY)
  endforeach()")
install(FILES ${ORVEXA_DOCUMENTS}/completion DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
        RENAME orvexa)
install(FILES ${ORVEXA_DOCUMENTS}/man DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 RENAME orvexa.1)

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
