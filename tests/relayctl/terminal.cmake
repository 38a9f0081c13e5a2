# SPDX-License-Identifier: MIT
# Tests of the commands terminal, pty, doctor, status and suggest.
sph_add_test(RelayctlPartsTest SANDBOX
  DoctorTest.cpp
  LogRecordTest.cpp
  MultiplexerTest.cpp
  PlayedServiceTest.cpp
  IdleTimeTest.cpp
  ProgressTest.cpp
  LastWillTest.cpp
  PseudoTerminalTest.cpp
  SuggestTest.cpp
  LIBRARIES e2e_support relayctl_parts sph_warnings)
target_compile_definitions(RelayctlPartsTest PRIVATE
  SPH_OPERATIONS="${PROJECT_SOURCE_DIR}/docs/operations.md"
  SPH_TEST_DATA="${PROJECT_SOURCE_DIR}/tests/testdata")

# The real doctor and status, and the real service. They count its threads, to which ThreadSanitizer
# adds one of its own.
if(NOT SPH_SANITIZE STREQUAL "thread")
  sph_add_test(RelayctlDoctorTest SANDBOX
    DoctorCommandTest.cpp
    HangTest.cpp
    HangingServiceTest.cpp
    RelayctlTest.cpp
    Shell.cpp
    StatusDocTest.cpp
    StatusTable.cpp
    StatusTableTest.cpp
    StatusTest.cpp
    LIBRARIES recordings sph_warnings)
  add_dependencies(RelayctlDoctorTest relayctl)
  target_compile_definitions(RelayctlDoctorTest PRIVATE
    SPH_OPERATIONS="${PROJECT_SOURCE_DIR}/docs/operations.md"
    SPH_ALERTS="${PROJECT_SOURCE_DIR}/packaging/examples/serial-port-handler.alerts.yml")
  if(NOT SPH_SANITIZE)
    target_sources(RelayctlDoctorTest PRIVATE StatusCallsTest.cpp StatusLimitsTest.cpp)
  endif()
endif()

sph_add_test(RelayctlTerminalTest SANDBOX
  OtherProgramsTest.cpp
  PtyTest.cpp
  RelayctlTest.cpp
  ServeKeysTest.cpp
  Shell.cpp
  SlowReaderTest.cpp
  TerminalTest.cpp
  TmuxWindow.cpp
  LIBRARIES e2e_support sph_warnings)
add_dependencies(RelayctlTerminalTest relayctl)
# In kB. A sanitizer keeps what the program has freed: there, the bound is only that of the device.
set(memory 4096)
if(SPH_SANITIZE)
  set(memory SIZE_MAX)
endif()
target_compile_definitions(RelayctlTerminalTest PRIVATE SPH_MOST_MEMORY=${memory})

# The library is the machine's own: there is none for another architecture.
if(NOT CMAKE_CROSSCOMPILING)
  find_path(MODBUS_INCLUDE_DIR modbus/modbus.h REQUIRED)
  find_library(MODBUS_LIBRARY modbus REQUIRED)
  sph_add_test(RelayctlModbusTest SANDBOX
    ModbusTest.cpp
    RelayctlTest.cpp
    Shell.cpp
    LIBRARIES e2e_support ${MODBUS_LIBRARY} sph_warnings)
  target_include_directories(RelayctlModbusTest SYSTEM PRIVATE ${MODBUS_INCLUDE_DIR})
  add_dependencies(RelayctlModbusTest relayctl)
endif()
