# What `cmake --install` puts where beside the client library (sdk/package.cmake), by component, and the packages that
# CPack makes of it for Linux. packaging/packages.py makes the ones for Windows of the same components.
include(GNUInstallDirs)

if(WIN32)
    # Each is a flat folder; the first is what lies in a machine's program folder.
    install(TARGETS zorvalis zorvctl RUNTIME DESTINATION . COMPONENT service)
    install(FILES packaging/default.json LICENSE THIRD-PARTY-NOTICES.md docs/administrator.md
        DESTINATION . COMPONENT service)
    install(TARGETS zorvsetup RUNTIME DESTINATION . COMPONENT setup EXCLUDE_FROM_ALL)
    install(FILES packaging/windows/install.cmd packaging/windows/remove.cmd
        DESTINATION . COMPONENT setup EXCLUDE_FROM_ALL)
    install(TARGETS zorv_acceptance zorv_hardware DESTINATION . COMPONENT acceptance EXCLUDE_FROM_ALL)
    install(FILES tools/hardware/hardware.json acceptance/README.txt LICENSE THIRD-PARTY-NOTICES.md
        DESTINATION . COMPONENT acceptance EXCLUDE_FROM_ALL)
    return()
endif()

# Programs find what belongs to them beside themselves, so they stay together, and bin/ has links to them.
set(together ${CMAKE_INSTALL_LIBDIR}/zorvalis)
install(TARGETS zorvalis zorvctl zorvserver RUNTIME DESTINATION ${together} COMPONENT tools)
install(TARGETS zorv_hardware LIBRARY DESTINATION ${together} COMPONENT tools)
install(FILES packaging/default.json tools/hardware/hardware.json DESTINATION ${together} COMPONENT tools)
install(FILES LICENSE THIRD-PARTY-NOTICES.md docs/stand-in-machine.md
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/zorvalis COMPONENT tools)
foreach(name zorvctl zorvserver)
    set(link ${PROJECT_BINARY_DIR}/installed/${name})
    file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/installed)
    file(RELATIVE_PATH program /${CMAKE_INSTALL_BINDIR} /${together}/${name})
    file(CREATE_LINK ${program} ${link} SYMBOLIC)
    install(FILES ${link} DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
endforeach()
# What only a running zorvctl knows: its page for man, and what a shell completes.
install(CODE "
    execute_process(COMMAND $<TARGET_FILE:zorvctl> manual
        OUTPUT_FILE ${PROJECT_BINARY_DIR}/installed/zorvctl.1 COMMAND_ERROR_IS_FATAL ANY)
    execute_process(COMMAND $<TARGET_FILE:zorvctl> completion bash
        OUTPUT_FILE ${PROJECT_BINARY_DIR}/installed/zorvctl.bash COMMAND_ERROR_IS_FATAL ANY)" COMPONENT tools)
install(FILES ${PROJECT_BINARY_DIR}/installed/zorvctl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
install(FILES ${PROJECT_BINARY_DIR}/installed/zorvctl.bash RENAME zorvctl
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)

set(CPACK_PACKAGE_NAME zorvalis)
set(CPACK_PACKAGE_VERSION ${ZORV_SERVICE_VERSION})
set(CPACK_PACKAGE_VENDOR "ZorvTek Computer Inc.")
set(CPACK_PACKAGE_CONTACT "ZorvTek Computer Inc. <zorvalis@zorvcore.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Stand-in machine, tools and client library of Zorvalis, for developers")
set(CPACK_PACKAGE_FILE_NAME zorvalis-${ZORV_SERVICE_VERSION}-linux-${CMAKE_SYSTEM_PROCESSOR})
set(CPACK_GENERATOR DEB TGZ)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS libcurl4)  # loaded when it is needed, so no linker tells of it
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/package_times.cmake)
include(CPack)
