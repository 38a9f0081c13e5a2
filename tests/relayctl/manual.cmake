# SPDX-License-Identifier: MIT
# What people read and type about relayctl, compared with the program itself. Debian's Python, and
# without a trace of it in the checkout. Nothing in it depends on the architecture.
if(NOT CMAKE_CROSSCOMPILING)
  set(manual ${CMAKE_CURRENT_SOURCE_DIR}/manual)
  set(python /usr/bin/python3 -EsB)

  add_test(NAME RelayctlManPage COMMAND ${python} ${manual}/test_man_page.py
    $<TARGET_FILE:relayctl> ${PROJECT_SOURCE_DIR}/docs/man/relayctl.1.md)
  # In the sandbox because of services that run outside, whose ports it would be offered.
  add_test(NAME RelayctlCompletion COMMAND ${sph_sandbox} --
    ${python} ${manual}/test_completion.py
    $<TARGET_FILE:relayctl> ${PROJECT_SOURCE_DIR}/relayctl/completion/relayctl.bash)

  # What a relay service is tried with, in the document and in the program.
  add_test(NAME RelayctlCheckPage COMMAND ${python} ${manual}/test_check_page.py
    $<TARGET_FILE:relayctl> ${PROJECT_SOURCE_DIR}/docs)
  set(tests Reports RightRelays.test_the_little_one)
  if(NOT SPH_SANITIZE)
    list(APPEND tests RightRelays.test_watch RightRelays.test_pty RightRelays.test_share
      RightRelays.test_megabytes
      RightRelays.test_pipe_in_hundreds_of_variants RightRelays.test_the_python_examples
      WrongRelays.test_one_recv_is_one_packet WrongRelays.test_stops_reading
      WrongRelays.test_sends_before_it_reads
      WrongRelays.test_dies_of_a_reset WrongRelays.test_never_pauses WrongRelays.test_meets_itself
      WrongRelays.test_ignores_the_status WrongRelays.test_a_notification_is_a_message)
  endif()
  foreach(test IN LISTS tests)
    add_test(NAME RelayctlCheck.${test} COMMAND ${sph_sandbox} -- ${python}
      ${CMAKE_CURRENT_SOURCE_DIR}/check/test_check.py $<TARGET_FILE:relayctl> ${test})
    set_tests_properties(RelayctlCheck.${test} PROPERTIES COST 10)
  endforeach()

  # What ./run and README.md show, in the sandbox because of the service's fixed file names.
  if(NOT SPH_SANITIZE)
    add_test(NAME ReadmeSession COMMAND ${sph_sandbox} --
      ${PROJECT_SOURCE_DIR}/scripts/readme-session --check ${PROJECT_BINARY_DIR})
    add_test(NAME Demonstration COMMAND ${sph_sandbox} --
      ${python} ${PROJECT_SOURCE_DIR}/demo/demo.py $<TARGET_FILE:SerialPortHandler>)

    # The client library as another project uses it, installed from this build.
    add_test(NAME RelayClientGuide COMMAND ${sph_sandbox} -- ${python}
      ${CMAKE_CURRENT_SOURCE_DIR}/consumer/test_guide.py ${PROJECT_BINARY_DIR})
    set_tests_properties(RelayClientGuide PROPERTIES PROCESSORS 4 COST 20)
  endif()
endif()
