// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <string>
#include <vector>

#include "e2e/support/ChildProcess.h"

// The process SerialPortHandler, the real program with the real platform libraries. It stands
// beside the test program.
class Service : public ChildProcess {
 public:
  enum class Session { kInherited, kOwn };  // kOwn: it leads a session, as under most supervisors

  // `output` is where its standard output goes instead of to the file that Output() reads.
  explicit Service(Session session = Session::kInherited, int output = -1);

  // All that it has written to the standard streams so far.
  static std::string Output();
  static std::string Errors();

  // Waits until standard output (error) has shown `text` at least `count` times. False when the
  // deadline passes.
  static bool Prints(const std::string& text, size_t count = 1);
  static bool PrintsError(const std::string& text, size_t count = 1);

  // Whether all its threads wait for something, at one and the same moment.
  bool IsIdle() const;

  // What the process holds at the moment. 0 when it is gone.
  size_t Descriptors() const;
  size_t Sockets() const;
  size_t Threads() const { return FromStatus("Threads"); }
  size_t ResidentKilobytes() const { return FromStatus("VmRSS"); }

  // Whether one of its descriptors is `path`.
  bool Holds(const std::string& path) const;

 private:
  std::vector<std::string> OpenPaths() const;
  std::map<std::string, std::string> ThreadStates() const;
};
