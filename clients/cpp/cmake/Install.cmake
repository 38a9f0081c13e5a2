# SPDX-License-Identifier: MIT
# Installs the library with its headers, a CMake package (find_package(RelayClient), target
# RelayClient::relayclient) and pkg-config's relayclient.pc and relayclient-c.pc, as the component
# client. All paths in them are relative: `cmake --install --prefix` and a tree that is moved work.
include(CMakePackageConfigHelpers)

set(headers ${CMAKE_INSTALL_INCLUDEDIR}/relayclient)
set(package ${CMAKE_INSTALL_LIBDIR}/cmake/RelayClient)

install(TARGETS relayclient EXPORT RelayClientTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT client)
install(DIRECTORY relay DESTINATION ${headers} COMPONENT client FILES_MATCHING PATTERN *.h)
install(FILES relayclient.h DESTINATION ${headers} COMPONENT client)
install(FILES ${PROJECT_SOURCE_DIR}/src/protocol/WireFormat.h DESTINATION ${headers}/protocol
        COMPONENT client)

install(EXPORT RelayClientTargets NAMESPACE RelayClient:: DESTINATION ${package} COMPONENT client)
configure_package_config_file(cmake/RelayClientConfig.cmake.in RelayClientConfig.cmake
                              INSTALL_DESTINATION ${package})
write_basic_package_version_file(RelayClientConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/RelayClientConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/RelayClientConfigVersion.cmake
        DESTINATION ${package} COMPONENT client)

file(RELATIVE_PATH relayclient_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
     ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" relayclient_prefix ${relayclient_prefix})
file(RELATIVE_PATH relayclient_includedir ${CMAKE_INSTALL_PREFIX}
     ${CMAKE_INSTALL_FULL_INCLUDEDIR}/relayclient)
configure_file(cmake/relayclient.pc.in relayclient.pc @ONLY)
configure_file(cmake/relayclient-c.pc.in relayclient-c.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/relayclient.pc ${CMAKE_CURRENT_BINARY_DIR}/relayclient-c.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT client)
