# SPDX-License-Identifier: MIT
# What the commands terminal, pty, doctor and suggest add to relayctl. They use the service's own
# search for adapters and its configuration's reader, so they tell what the service would do.
find_path(NLOHMANN_JSON_INCLUDE_DIR nlohmann/json.hpp REQUIRED)

target_sources(relayctl_commands PRIVATE
  Doctor.cpp
  DoctorCommand.cpp
  DoctorLine.cpp
  DoctorPort.cpp
  DoctorService.cpp
  FileSender.cpp
  HexView.cpp
  LastWill.cpp
  MachineConfiguration.cpp
  Printable.cpp
  ProcessTable.cpp
  PseudoTerminal.cpp
  PtyBridge.cpp
  RawTerminal.cpp
  Report.cpp
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
target_link_libraries(relayctl_commands PRIVATE service vost_core)
