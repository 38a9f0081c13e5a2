// SPDX-License-Identifier: MIT
// The kernel's socket calls, replaced at link time: written down as text, answered as the test
// wants. Calls from outside of a ScriptedKernel's life go through.
#pragma once

#include <netinet/in.h>

#include <map>
#include <string>
#include <vector>

struct ScriptedKernel {
  ScriptedKernel();
  ~ScriptedKernel();
  ScriptedKernel(const ScriptedKernel&) = delete;
  ScriptedKernel& operator=(const ScriptedKernel&) = delete;

  std::vector<std::string> calls;         // "bind(1000, 127.0.0.1:60004, 16)"
  std::map<std::string, int> failures;    // name of a call → the errno with which it fails
  std::string peerAddress = "127.0.0.1";  // of whom accept takes
  int transferred = 0;                    // what send and recv return
  int nextDescriptor = 1000;
};
