// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <memory>
#include <vector>

#include "CommandLine.h"
#include "Duration.h"
#include "ExitStatus.h"
#include "link/Loop.h"
#include "relay/Text.h"
#include "show/Explain.h"
#include "show/Output.h"

namespace {

using relay::Clock;

// A service that its last peer has just left takes a new link and resets it so much later.
constexpr std::chrono::milliseconds kGrace{500};

struct Options {
  std::vector<std::string> hex;
  double wait = 1;
  bool fields = false;
};

// The bytes go out as they are; nothing tells how many packets they are, or whether any is
// answered. So what comes back is shown until nothing has come for a while.
int Raw(const CommonOptions& common, const Options& options) {
  std::string bytes;
  for (const std::string& part : options.hex) {
    bytes += relay::FromHex(part);
  }
  const bool isColored = MayColor(STDOUT_FILENO);
  const auto wait = FromSeconds(options.wait);
  std::optional<Clock::time_point> end;
  relay::Client client(common.ForClient());
  relay::Events events;
  events.connected = [&] {
    client.Send(bytes);
    end = Clock::now() + wait + kGrace;
  };
  events.disconnected = [&](const relay::Error&) { end.reset(); };
  events.packet = [&](relay::Direction direction, std::string_view packet) {
    PrintLine(common.json ? ExplainPacketAsJson(packet, direction)
                          : ExplainPacket(packet, direction, options.fields, isColored));
    end = Clock::now() + wait;
  };
  client.SetEvents(events);
  client.Start();
  Loop loop;
  loop.Serve(client);
  loop.When([&] { return end; }, [] {});
  const int signal = loop.Run([&] { return end && Clock::now() >= *end; });
  return signal == 0 ? kExitDone : kExitSignal + signal;
}

void Add(SubCommand& command, const CommonOptions& common) {
  const auto options = std::make_shared<Options>();
  command.Arguments("HEX", options->hex, "The bytes: 0007 02 02 0001 58");
  command.Option("--wait", options->wait, "SECONDS", "Stay until nothing has come for so long");
  command.Flag("--fields", options->fields, "Show the fields of what comes back");
  command.Runs([&common, options] { return Raw(common, *options); });
}

const Registration kRegistration("raw", "Send exactly these bytes, decode what comes back", Add);

}  // namespace
