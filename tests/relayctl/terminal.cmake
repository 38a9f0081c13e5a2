# SPDX-License-Identifier: MIT
# Tests of the commands terminal, pty, doctor and suggest.
sph_add_test(RelayctlPartsTest
  DoctorTest.cpp
  PseudoTerminalTest.cpp
  SuggestTest.cpp
  TerminalPartsTest.cpp
  LIBRARIES relayctl_commands e2e_support sph_warnings)
target_compile_definitions(RelayctlPartsTest PRIVATE
  SPH_TEST_DATA="${PROJECT_SOURCE_DIR}/tests/testdata")

sph_add_test(RelayctlTerminalTest
  ../e2e/ServiceTest.cpp
  PtyTest.cpp
  RelayctlTest.cpp
  Shell.cpp
  LIBRARIES e2e_support sph_warnings)
add_dependencies(RelayctlTerminalTest SerialPortHandler relayctl)
