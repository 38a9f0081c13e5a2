// SPDX-License-Identifier: MIT
#include <deque>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include "CommandLine.h"
#include "ExitStatus.h"
#include "link/Loop.h"
#include "link/PortToOpen.h"
#include "pty/PseudoTerminal.h"
#include "pty/PtyBridge.h"
#include "relay/Text.h"
#include "share/Share.h"

namespace {

struct Options {
  unsigned listen = relay::kDefaultPort;
  unsigned watchers = 0;
  std::vector<std::string> terminals;
  TerminalAccessOptions access;
};

struct Terminal {
  relay::Port port;
  TerminalPlace place;
};

[[noreturn]] void FailUsage(const std::string& text) {
  throw relay::Error(relay::ErrorKind::kUsage, text);
}

// "#USBSerialPort0=/run/tty-meter"; without a path it is where the system makes it.
Terminal TerminalOf(const std::string& text, const TerminalAccess& access) {
  const size_t end = text.find('=');
  const std::string path = end == std::string::npos ? "" : text.substr(end + 1);
  if (end != std::string::npos && path.empty()) {
    FailUsage("--pty " + relay::Escape(text) + ": there is no path behind the =");
  }
  return {PortToOpen(text.substr(0, end)), {path, access}};
}

// Two ports that are the same would be refused by the system, and only once the service is there.
void MustDiffer(uint16_t servicePort, const Options& options) {
  const std::string service = std::to_string(servicePort);
  if (options.listen == servicePort) {
    FailUsage("--listen: the service itself is to be at " + service +
              ": give it another port in its configuration, or this one here");
  }
  if (options.watchers != 0 &&
      (options.watchers == servicePort || options.watchers == options.listen)) {
    FailUsage("--watchers: " + std::to_string(options.watchers) + " is the port of " +
              (options.watchers == servicePort ? "the service" : "the peers"));
  }
}

// A terminal is made when its port opens, which may be when others have long been at work: what
// would fail then fails now. Of two at one path, the first could not be found by anybody.
void MustBePossible(const std::vector<Terminal>& terminals) {
  std::set<std::filesystem::path> paths;
  for (const Terminal& terminal : terminals) {
    const std::string& path = terminal.place.link;
    if (!path.empty() && !paths.insert(std::filesystem::absolute(path).lexically_normal()).second) {
      FailUsage("--pty: " + relay::Escape(path) + " is the path of two");
    }
  }
  for (const Terminal& terminal : terminals) {
    try {
      const PseudoTerminal made(terminal.place);
    } catch (const std::system_error& error) {
      throw relay::Error(relay::ErrorKind::kSystem,
                         "--pty " + terminal.port.Text() + ": " + relay::Escape(error.what()),
                         error.code().value());
    }
  }
}

// A pseudo-terminal is a peer like any other, and comes to the same TCP port.
int ShareLink(const CommonOptions& common, const Options& options) {
  common.RefuseJson("share");
  relay::ClientOptions service = common.ForClient(true);
  MustDiffer(service.port, options);
  const TerminalAccess access = options.access.Access();
  std::vector<Terminal> terminals;
  for (const std::string& text : options.terminals) {
    terminals.push_back(TerminalOf(text, access));
  }
  MustBePossible(terminals);
  relay::ClientOptions own = service;
  own.port = static_cast<uint16_t>(options.listen);
  Loop loop;
  Share share(loop, {service, own.port, static_cast<uint16_t>(options.watchers)});
  std::deque<PtyBridge> bridges;
  for (const Terminal& terminal : terminals) {
    bridges.emplace_back(own, terminal.port, terminal.place, "").Begin(loop);
  }
  (void)loop.Run([] { return false; });
  for (PtyBridge& bridge : bridges) {
    bridge.End();
  }
  return kExitDone;
}

void Add(SubCommand& command, const CommonOptions& common) {
  const auto options = std::make_shared<Options>();
  command.Option("--listen", options->listen, "N", "TCP port for the peers", 1);
  command.Option("--watchers", options->watchers, "N",
                 "TCP port for peers that may look, and send nothing to any line", 1);
  command.Option("--pty", options->terminals, "LINE",
                 "Offer a port as a pseudo-terminal too, with a link to it: "
                 "'#USBSerialPort0=/tmp/meter'; again for each");
  options->access.Add(command);
  command.Footer(
      "Waits for the service, and links again when it has left. A port that several\n"
      "have opened is open once, and closed when the last one lets go.");
  command.Runs([&common, options] { return ShareLink(common, *options); });
}

const Registration kRegistration("share", "Share the one link among many", Add);

}  // namespace
