// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

class SubCommand;

// Who may use a pseudo-terminal beside its owner. What is not given is as the system makes it: the
// user's own, and as a rule writable by the group tty.
struct TerminalAccess {
  std::optional<mode_t> mode;
  std::optional<gid_t> group;
};

// Where a pseudo-terminal is to be found, and by whom.
struct TerminalPlace {
  std::string link;  // a path that is to lead to it; empty: none
  TerminalAccess access;
};

// The same, as options of a command.
class TerminalAccessOptions {
 public:
  // Outlives the command.
  void Add(SubCommand& command);

  // Throws kUsage for a mode that is none and a group that this machine does not have.
  TerminalAccess Access() const;

 private:
  std::optional<std::string> mode;
  std::optional<std::string> group;
};
