// SPDX-License-Identifier: MIT
#include <memory>
#include <string>

#include "CommandLine.h"
#include "ExitStatus.h"
#include "link/Loop.h"
#include "link/PortToOpen.h"
#include "pty/PtyBridge.h"
#include "show/Output.h"

namespace {

struct Options {
  std::string port;
  std::string link;
};

// The loop is made first and goes last: until then, a signal ends nothing half way.
int Offer(const CommonOptions& common, const Options& options) {
  common.RefuseJson("pty");
  const relay::Port port = PortToOpen(options.port);
  Loop loop;
  PtyBridge bridge(common.ForClient(true), port, options.link);
  (void)bridge.Run(loop);
  if (bridge.Overrun() > 0) {
    PrintNotice(std::to_string(bridge.Overrun()) +
                " received bytes were thrown away: the program did not read them");
  }
  return kExitDone;  // a signal is its usual end
}

void Add(SubCommand& command, const CommonOptions& common) {
  const auto options = std::make_shared<Options>();
  command.Argument("PORT", options->port, "The port's name");
  command.Option("--link", options->link, "PATH", "A symbolic link to it, removed at the end");
  command.Runs([&common, options] { return Offer(common, *options); });
}

const Registration kRegistration("pty", "Offer a port to programs as a pseudo-terminal", Add);

}  // namespace
