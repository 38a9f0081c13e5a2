// SPDX-License-Identifier: MIT
#include "pty/TerminalPlace.h"

#include <grp.h>

#include <charconv>

#include "SubCommand.h"
#include "relay/Error.h"
#include "relay/Text.h"

namespace {

template <typename Number>
std::optional<Number> NumberOf(const std::string& text, int base) {
  Number number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  const bool isNumber = error == std::errc() && end == text.data() + text.size();
  return isNumber ? std::optional(number) : std::nullopt;
}

mode_t ModeOf(const std::string& text) {
  constexpr mode_t kReadAndWriteByAll = 0666;
  const std::optional<mode_t> mode = NumberOf<mode_t>(text, 8);
  if (!mode || (*mode & ~kReadAndWriteByAll) != 0) {
    throw relay::Error(relay::ErrorKind::kUsage,
                       "--mode: \"" + relay::Escape(text) + "\" is none of a terminal, as 660 is");
  }
  return *mode;
}

gid_t GroupOf(const std::string& text) {
  if (const group* const found = getgrnam(text.c_str())) {
    return found->gr_gid;
  }
  const std::optional<gid_t> number = NumberOf<gid_t>(text, 10);
  if (number && *number != static_cast<gid_t>(-1)) {  // which leaves the group as it is
    return *number;
  }
  throw relay::Error(relay::ErrorKind::kUsage,
                     "--group: there is no group \"" + relay::Escape(text) + "\"");
}

}  // namespace

void TerminalAccessOptions::Add(SubCommand& command) {
  command.Option("--mode", mode, "MODE", "Who may use the pseudo-terminal, in octal, as 660");
  command.Option("--group", group, "GROUP", "The pseudo-terminal's group, by name or number");
}

TerminalAccess TerminalAccessOptions::Access() const {
  TerminalAccess access;
  if (mode) {
    access.mode = ModeOf(*mode);
  }
  if (group) {
    access.group = GroupOf(*group);
  }
  return access;
}
