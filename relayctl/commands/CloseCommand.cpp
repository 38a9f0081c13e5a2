// SPDX-License-Identifier: MIT
#include <memory>
#include <optional>

#include "Commands.h"
#include "ExitStatus.h"
#include "relay/Client.h"
#include "show/Output.h"

namespace {

int Close(const Settings& settings, const std::string& name) {
  const relay::Port port = relay::Port::FromText(name);
  std::optional<relay::Reply> answer;
  relay::Client client(settings.ForClient());
  relay::Events events;
  events.connected = [&] {
    client.Close(port, [&](const relay::Reply& reply) { answer = reply; });
  };
  client.SetEvents(events);
  client.Start();
  client.RunUntil([&] { return answer.has_value(); });
  PrintReply(*answer, settings.json);
  CheckReply(*answer);
  return kExitDone;
}

}  // namespace

void AddCloseCommand(CommandLine& line) {
  const auto port = std::make_shared<std::string>();
  SubCommand& command = line.Add("close", "Send a close and tell the service's answer");
  command.Argument("PORT", *port, "A name, or ids of an adapter as 0403:6001");
  command.Footer(
      "The service closes all ports when a peer leaves, so this close finds none open\n"
      "(status 2).\n"
      "By ids of an adapter that is not plugged in it ends the service.");
  command.Runs([&line, port] { return Close(line.Common(), *port); });
}
