# SPDX-License-Identifier: MIT
# What the commands terminal, pty, doctor and suggest add to relayctl. They use the service's own
# search for adapters and ask the same platform library, so they tell what the service would do.
find_path(NLOHMANN_JSON_INCLUDE_DIR nlohmann/json.hpp REQUIRED)

target_sources(relayctl_commands PRIVATE
  Doctor.cpp
  DoctorCommand.cpp
  DoctorHang.cpp
  DoctorLine.cpp
  DoctorPort.cpp
  DoctorService.cpp
  FileSender.cpp
  HexView.cpp
  LastWill.cpp
  LibraryLog.cpp
  MachineConfiguration.cpp
  PortDevice.cpp
  Printable.cpp
  ProcessTable.cpp
  PseudoTerminal.cpp
  PtyBridge.cpp
  RawTerminal.cpp
  Report.cpp
  RunningService.cpp
  ServiceActivity.cpp
  Silence.cpp
  Suggest.cpp
  SuggestCommand.cpp
  TerminalCommands.cpp
  TerminalDevice.cpp
  TerminalKeys.cpp
  TerminalSession.cpp
  UdevSnapshot.cpp
)
target_include_directories(relayctl_commands SYSTEM PRIVATE ${NLOHMANN_JSON_INCLUDE_DIR})
target_link_libraries(relayctl_commands PRIVATE service)
if(TARGET vost_core)
  # Compiled in: relayctl is installed without the service's libraries, too.
  target_sources(relayctl_commands PRIVATE
    BundledConfigurationFile.cpp ${PROJECT_SOURCE_DIR}/platform-libs/libvost/Libvost.cpp)
  target_link_libraries(relayctl_commands PRIVATE vost_core)
else()
  target_sources(relayctl_commands PRIVATE UnknownConfigurationFile.cpp)
endif()
