# What `cmake --install` puts into an application developer's folder, which may be moved as a whole: component "sdk".
# Included by CMakeLists.txt beside it.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)
set(share ${CMAKE_INSTALL_DATADIR}/zorvalis)
set(config ${CMAKE_INSTALL_LIBDIR}/cmake/Zorvalis)

file(STRINGS zorvalis.h.in interface REGEX "^#define ZORVALIS_VERSION ${PROJECT_VERSION_MINOR}$")
if(NOT interface)
    message(FATAL_ERROR "ZORVALIS_VERSION in sdk/zorvalis.h.in is not ${PROJECT_VERSION_MINOR}, the project's number")
endif()

set_target_properties(zorvalis_client PROPERTIES EXPORT_NAME client)
install(TARGETS zorvalis_client EXPORT ZorvalisTargets
    RUNTIME COMPONENT sdk LIBRARY COMPONENT sdk ARCHIVE COMPONENT sdk
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT ZorvalisTargets NAMESPACE Zorvalis:: DESTINATION ${config} COMPONENT sdk)
file(RELATIVE_PATH ZORV_LIB_FROM_CONFIG /${config} /${CMAKE_INSTALL_LIBDIR})
configure_file(ZorvalisConfig.cmake.in ZorvalisConfig.cmake @ONLY)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/ZorvalisConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/ZorvalisConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/ZorvalisConfigVersion.cmake
    DESTINATION ${config} COMPONENT sdk)
file(RELATIVE_PATH ZORV_PREFIX_FROM_PC /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(zorvalis.pc.in zorvalis.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zorvalis.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT sdk)

set(made ${ZORV_RPC}/sdk)
install(FILES ${made}/zorvalis.h ${made}/zorvalis_client.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT sdk)
if(WIN32)
    install(FILES ${made}/zorvalis_client.def DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT sdk)
endif()
install(FILES ${made}/zorvalis.py DESTINATION ${share}/python COMPONENT sdk)
install(FILES ${made}/Zorvalis.cs DESTINATION ${share}/csharp COMPONENT sdk)
install(FILES zorvalis.idl zorvalis.acf DESTINATION ${share}/idl COMPONENT sdk)
install(DIRECTORY examples DESTINATION ${share} COMPONENT sdk)
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE ${PROJECT_SOURCE_DIR}/THIRD-PARTY-NOTICES.md
    ${PROJECT_SOURCE_DIR}/docs/rpc.md ${PROJECT_SOURCE_DIR}/docs/json-rpc.md
    ${PROJECT_SOURCE_DIR}/docs/stand-in-machine.md
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/zorvalis COMPONENT sdk)
