// SPDX-License-Identifier: MIT
#include <memory>
#include <vector>

#include "CommandLine.h"
#include "ExitStatus.h"
#include "link/Loop.h"
#include "link/PortToOpen.h"
#include "relay/Client.h"
#include "show/Output.h"

namespace {

struct Options {
  std::vector<std::string> ports;
  bool hold = false;
};

// Opens each port and tells of each answer. The first status other than 0 is the program's.
int Open(const CommonOptions& common, const Options& options) {
  const std::vector<relay::Port> ports = PortsToOpen(options.ports);
  std::vector<relay::Reply> replies;
  relay::Client client(common.ForClient());
  relay::Events events;
  events.connected = [&] {
    for (const relay::Port& port : ports) {
      client.Open(port, [&](const relay::Reply& reply) {
        PrintReply(reply, common.json);
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
  int status = kExitDone;
  for (const relay::Reply& reply : replies) {
    if (reply.status != kStatusDone) {
      PrintNotice(RefusalText(reply));
      status = status == kExitDone ? kExitRefused + reply.status : status;
    }
  }
  if (status != kExitDone) {
    return status;
  }
  if (options.hold) {
    (void)loop.Run([] { return false; });
  }
  return kExitDone;
}

void Add(SubCommand& command, const CommonOptions& common) {
  const auto options = std::make_shared<Options>();
  command.Arguments("PORT", options->ports, "Names, as '#PhysicalPort0'");
  command.Flag("--hold", options->hold,
               "Keep them open until Ctrl-C; the service closes them when relayctl leaves");
  command.Runs([&common, options] { return Open(common, *options); });
}

const Registration kRegistration("open", "Open ports and tell the service's answers", Add);

}  // namespace
