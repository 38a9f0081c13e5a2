// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <memory>
#include <string>

#include "CommandLine.h"
#include "ExitStatus.h"
#include "link/Loop.h"
#include "link/PortToOpen.h"
#include "pty/RawTerminal.h"
#include "pty/TerminalSession.h"
#include "show/Output.h"

namespace {

struct Options {
  std::string port;
  std::string escape = "Ctrl-]";
  std::string ending = "cr";
  bool hex = false;
  bool echo = false;
};

LineEnding EndingOf(const std::string& word) {
  return word == "lf" ? LineEnding::kLf : word == "crlf" ? LineEnding::kCrLf : LineEnding::kCr;
}

// The loop is made first and goes last: until then, a signal ends nothing half way.
int Talk(const CommonOptions& common, const Options& options) {
  common.RefuseJson("terminal");
  const int escape = ControlByte(options.escape);
  if (escape < 0) {
    throw relay::Error(relay::ErrorKind::kUsage,
                       "--escape " + options.escape + ": not a control key; try Ctrl-A");
  }
  const relay::Port port = PortToOpen(options.port);
  TerminalOptions terminal;
  terminal.escapeKey = static_cast<char>(escape);
  terminal.ending = EndingOf(options.ending);
  terminal.hex = options.hex;
  terminal.echo = options.echo;
  terminal.colour = MayColor(STDOUT_FILENO);
  Loop loop;
  const RawTerminal raw(STDIN_FILENO);
  const int signal = TerminalSession(common.ForClient(true), port, terminal).Run(raw, loop);
  return signal == 0 ? kExitDone : kExitSignal + signal;
}

void Add(SubCommand& command, const CommonOptions& common) {
  const auto options = std::make_shared<Options>();
  command.Argument("PORT", options->port, "The port's name");
  command.Option("--escape", options->escape, "KEY", "Key in front of the terminal's own keys");
  command.Choice("--enter", options->ending, {"cr", "lf", "crlf"}, "What Enter sends");
  command.Flag("--echo", options->echo, "Show what is typed");
  command.Flag("--hex", options->hex, "Show bytes as hex and text side by side");
  command.Footer("Ctrl-] h shows the terminal's own keys, Ctrl-] q leaves.");
  command.Runs([&common, options] { return Talk(common, *options); });
}

const Registration kRegistration("terminal", "Talk to a port by keyboard and screen", Add);

}  // namespace
