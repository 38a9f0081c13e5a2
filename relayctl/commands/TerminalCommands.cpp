// SPDX-License-Identifier: MIT
// The command lines of terminal and pty.
#include <unistd.h>

#include <memory>
#include <string>

#include "Commands.h"
#include "ExitStatus.h"
#include "MachineCommands.h"
#include "link/Loop.h"
#include "link/PortToOpen.h"
#include "pty/PtyBridge.h"
#include "pty/RawTerminal.h"
#include "pty/TerminalSession.h"
#include "show/Output.h"

namespace {

struct TerminalArguments {
  std::string port;
  std::string escape = "Ctrl-]";
  std::string ending = "cr";
  bool hex = false;
  bool echo = false;
};

struct PtyArguments {
  std::string port;
  std::string link;
};

LineEnding EndingOf(const std::string& word) {
  return word == "lf" ? LineEnding::kLf : word == "crlf" ? LineEnding::kCrLf : LineEnding::kCr;
}

// The loop is made first and goes last: until then, a signal ends nothing half way.
int RunTerminal(const Settings& settings, const TerminalArguments& arguments) {
  settings.RefuseJson("terminal");
  const int escape = ControlByte(arguments.escape);
  if (escape < 0) {
    throw relay::Error(relay::ErrorKind::kUsage,
                       "--escape " + arguments.escape + ": not a control key; try Ctrl-A");
  }
  const relay::Port port = PortToOpen(arguments.port);
  TerminalOptions options;
  options.escapeKey = static_cast<char>(escape);
  options.ending = EndingOf(arguments.ending);
  options.hex = arguments.hex;
  options.echo = arguments.echo;
  options.colour = MayColor(STDOUT_FILENO);
  Loop loop;
  const RawTerminal raw(STDIN_FILENO);
  const int signal = TerminalSession(settings.ForClient(true), port, options).Run(raw, loop);
  return signal == 0 ? kExitDone : kExitSignal + signal;
}

int RunPty(const Settings& settings, const PtyArguments& arguments) {
  settings.RefuseJson("pty");
  const relay::Port port = PortToOpen(arguments.port);
  Loop loop;
  PtyBridge bridge(settings.ForClient(true), port, arguments.link);
  (void)bridge.Run(loop);
  if (bridge.Overrun() > 0) {
    PrintNotice(std::to_string(bridge.Overrun()) +
                " received bytes were thrown away: the program did not read them");
  }
  return kExitDone;  // a signal is its usual end
}

void AddTerminal(CommandLine& line) {
  const auto arguments = std::make_shared<TerminalArguments>();
  SubCommand& command = line.Add("terminal", "Talk to a port by keyboard and screen");
  command.Argument("PORT", arguments->port, "The port's name");
  command.Option("--escape", arguments->escape, "KEY", "Key in front of the terminal's own keys");
  command.Choice("--enter", arguments->ending, {"cr", "lf", "crlf"}, "What Enter sends");
  command.Flag("--echo", arguments->echo, "Show what is typed");
  command.Flag("--hex", arguments->hex, "Show bytes as hex and text side by side");
  command.Footer("Ctrl-] h shows the terminal's own keys, Ctrl-] q leaves.");
  command.Runs([&line, arguments] { return RunTerminal(line.Common(), *arguments); });
}

void AddPty(CommandLine& line) {
  const auto arguments = std::make_shared<PtyArguments>();
  SubCommand& command = line.Add("pty", "Offer a port to programs as a pseudo-terminal");
  command.Argument("PORT", arguments->port, "The port's name");
  command.Option("--link", arguments->link, "PATH", "A symbolic link to it, removed at the end");
  command.Runs([&line, arguments] { return RunPty(line.Common(), *arguments); });
}

}  // namespace

void AddTerminalCommands(CommandLine& line) {
  AddTerminal(line);
  AddPty(line);
  AddDoctor(line);
  AddSuggest(line);
}
