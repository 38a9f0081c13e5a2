// SPDX-License-Identifier: MIT
#include <memory>
#include <vector>

#include "Commands.h"
#include "ExitStatus.h"
#include "Loop.h"
#include "Output.h"
#include "relay/Client.h"

namespace {

struct Options {
  std::vector<std::string> ports;
  bool hold = false;
};

// Opens each port; the first status other than 0 ends the program, after all have been answered.
int Open(const Settings& settings, const Options& options) {
  std::vector<relay::Port> ports;
  for (const std::string& text : options.ports) {
    ports.push_back(relay::Port::FromText(text));
  }
  std::vector<relay::Reply> replies;
  relay::Client client(settings.ForClient());
  relay::Events events;
  events.connected = [&] {
    for (const relay::Port& port : ports) {
      client.Open(port, [&](const relay::Reply& reply) {
        PrintReply(reply, settings.json);
        replies.push_back(reply);
      });
    }
  };
  client.SetEvents(events);
  client.Start();
  Loop loop;
  loop.Serve(client);
  if (const int signal = loop.Run([&] { return replies.size() == ports.size(); })) {
    return kExitSignal + signal;
  }
  for (const relay::Reply& reply : replies) {
    CheckReply(reply);
  }
  if (options.hold) {
    (void)loop.Run([] { return false; });
  }
  return kExitDone;
}

}  // namespace

void AddOpenCommand(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  SubCommand& command = line.Add("open", "Open ports and tell the service's answers");
  command.Arguments("PORT", options->ports, "Names, or ids of adapters as 0403:6001");
  command.Flag("--hold", options->hold,
               "Keep them open until Ctrl-C; the service closes them when relayctl leaves");
  command.Runs([&line, options] { return Open(line.Common(), *options); });
}
