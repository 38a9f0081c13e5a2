// SPDX-License-Identifier: MIT
#include <memory>
#include <string>

#include "CommandLine.h"
#include "link/Loop.h"
#include "link/PortToOpen.h"
#include "pty/PtyBridge.h"

namespace {

struct Options {
  std::string port;
  std::string link;
  std::string program;
  TerminalAccessOptions access;
};

// The loop is made first and goes last: until then, a signal ends nothing half way.
int Offer(const CommonOptions& common, const Options& options) {
  common.RefuseJson("pty");
  const relay::Port port = PortToOpen(options.port);
  MustNamePlace("--exec", options.program);
  const TerminalPlace place = {options.link, options.access.Access()};
  Loop loop;
  return PtyBridge(common.ForClient(true), port, place, options.program).Run(loop);
}

void Add(SubCommand& command, const CommonOptions& common) {
  const auto options = std::make_shared<Options>();
  command.Argument("PORT", options->port, "The port's name");
  command.Option("--link", options->link, "PATH", "A symbolic link to it, removed at the end");
  command.Option("--exec", options->program, "COMMAND",
                 "Run this on it, with {} for its path, and leave with its exit status");
  options->access.Add(command);
  command.Runs([&common, options] { return Offer(common, *options); });
}

const Registration kRegistration("pty", "Offer a port to programs as a pseudo-terminal", Add);

}  // namespace
