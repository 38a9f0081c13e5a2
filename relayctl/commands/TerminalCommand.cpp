// SPDX-License-Identifier: MIT
#include <memory>
#include <string>

#include "CommandLine.h"
#include "link/Loop.h"
#include "link/PortToOpen.h"
#include "pty/PtyBridge.h"

namespace {

// The pseudo-terminal is nobody else's: no lock is needed on it, and once it is gone the same path
// is another's, which must not be waited for.
constexpr const char* kInstalledProgram =
    "command -v tio >/dev/null && exec tio --no-autoconnect {}\n"
    "command -v picocom >/dev/null && exec picocom --nolock {}\n"
    "echo 'relayctl: neither tio nor picocom is installed; --with names another program' >&2\n"
    "exit 127";

struct Options {
  std::string port;
  std::string program;
};

// The loop is made first and goes last: until then, a signal ends nothing half way.
int Talk(const CommonOptions& common, const Options& options) {
  common.RefuseJson("terminal");
  const relay::Port port = PortToOpen(options.port);
  MustNamePlace("--with", options.program);
  Loop loop;
  return PtyBridge(common.ForClient(true), port, {},
                   options.program.empty() ? kInstalledProgram : options.program)
      .Run(loop);
}

void Add(SubCommand& command, const CommonOptions& common) {
  const auto options = std::make_shared<Options>();
  command.Argument("PORT", options->port, "The port's name");
  command.Option("--with", options->program, "COMMAND",
                 "Another program than tio or picocom: 'minicom -D {}'; {} is the port's path");
  command.Runs([&common, options] { return Talk(common, *options); });
}

const Registration kRegistration("terminal", "Talk to a port by a terminal program", Add);

}  // namespace
