// SPDX-License-Identifier: MIT
#include <memory>
#include <optional>

#include "CommandLine.h"
#include "ExitStatus.h"
#include "relay/Client.h"
#include "show/Output.h"

namespace {

int Close(const CommonOptions& common, const std::string& name) {
  const relay::Port port = relay::Port::FromText(name);
  std::optional<relay::Reply> answer;
  relay::Client client(common.ForClient());
  relay::Events events;
  events.connected = [&] {
    client.Close(port, [&](const relay::Reply& reply) { answer = reply; });
  };
  client.SetEvents(events);
  client.Start();
  client.RunUntil([&] { return answer.has_value(); });
  PrintReply(*answer, common.json);
  CheckReply(*answer);
  return kExitDone;
}

void Add(SubCommand& command, const CommonOptions& common) {
  const auto port = std::make_shared<std::string>();
  command.Argument("PORT", *port, "A name, or ids of an adapter as 0403:6001");
  command.Footer(
      "The service closes all ports when a peer leaves, so this close finds none open\n"
      "(status 2).\n"
      "By ids of an adapter that is not plugged in it ends the service.");
  command.Runs([&common, port] { return Close(common, *port); });
}

const Registration kRegistration("close", "Send a close and tell the service's answer", Add);

}  // namespace
