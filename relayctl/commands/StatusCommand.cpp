// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <memory>
#include <optional>

#include "CommandLine.h"
#include "show/Output.h"
#include "status/StatusText.h"

namespace {

int Status(const CommonOptions& common) {
  const std::optional<uint16_t> port =
      common.givenRelayPort != 0 ? std::optional(common.RelayPort()) : std::nullopt;
  const SiteStatus status = LookAtSite(port);
  std::string text = common.json ? JsonOf(status) + "\n" : TextOf(status, MayColor(STDOUT_FILENO));
  text.pop_back();  // PrintLine ends it
  PrintLine(text);
  return static_cast<int>(status.health);
}

void Add(SubCommand& command, const CommonOptions& common) {
  command.Footer(R"(Exit status:
  0 healthy    1 needs attention, or a file or the system
  2 down, or wrong use)");
  command.Runs([&common] { return Status(common); });
}

const Registration kRegistration("status", "Tell how the site is, without touching it", Add);

}  // namespace
