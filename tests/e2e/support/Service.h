// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

// The process SerialPortHandler, the real program with the real platform libraries. It stands
// beside the test program.
class Service {
 public:
  enum class Session { kInherited, kOwn };  // kOwn: it leads a session, as under most supervisors

  // Starts it in a process group of its own. `output` is where its standard output goes instead of
  // to the file that Output() reads.
  explicit Service(Session session = Session::kInherited, int output = -1);

  // Kills what is left of the process group.
  ~Service();
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  pid_t Pid() const { return pid; }

  // All that it has written to the standard streams so far.
  static std::string Output();
  static std::string Errors();

  // Waits until standard output (error) has shown `text` at least `count` times. False when the
  // deadline passes.
  static bool Prints(const std::string& text, size_t count = 1);
  static bool PrintsError(const std::string& text, size_t count = 1);

  void Signal(int number) const;

  // "exit 0", "signal 6", or "still running" when the deadline passes.
  std::string WaitForExit();

  // "exit 0", "signal 6", or "still running" as it is now.
  std::string State();

  // Whether all its threads wait for something at the moment.
  bool IsIdle() const;

  // What the process holds at the moment. 0 when it is gone.
  size_t Descriptors() const;
  size_t Sockets() const;
  size_t Threads() const;
  size_t ResidentKilobytes() const;

  // Whether one of its descriptors is `path`.
  bool Holds(const std::string& path) const;

 private:
  std::vector<std::string> OpenPaths() const;
  std::string FromStatus(const std::string& field) const;

  pid_t pid = -1;
  std::string ended;
};
