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

  # What ./run and README.md show, in the sandbox because of the service's fixed file names.
  if(NOT SPH_SANITIZE)
    add_test(NAME ReadmeSession COMMAND ${sph_sandbox} --
      ${PROJECT_SOURCE_DIR}/scripts/readme-session --check ${PROJECT_BINARY_DIR})
    add_test(NAME Demonstration COMMAND ${sph_sandbox} --
      ${python} ${PROJECT_SOURCE_DIR}/demo/demo.py $<TARGET_FILE:SerialPortHandler>)

    # The client library as another project uses it, installed from this build.
    add_test(NAME RelayClientGuide COMMAND ${sph_sandbox} -- ${python}
      ${CMAKE_CURRENT_SOURCE_DIR}/consumer/test_guide.py ${PROJECT_BINARY_DIR})
    set_tests_properties(RelayClientGuide PROPERTIES COST 20)
  endif()
endif()
