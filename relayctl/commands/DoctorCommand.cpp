// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "ExitStatus.h"
#include "doctor/Doctor.h"
#include "show/Output.h"

namespace {

struct Options {
  std::vector<std::string> ports;
  bool open = false;
};

bool Print(const Report& report, bool asJson) {
  std::string text = asJson ? report.Json() : report.Text(MayColor(STDOUT_FILENO));
  if (!asJson) {
    text.pop_back();  // PrintLine ends it
  }
  PrintLine(text);
  return report.HasFault();
}

int Doctor(const CommonOptions& common, const Options& options) {
  const bool isGiven = common.givenRelayPort != 0;
  const LineAccess lines = options.open ? LineAccess::kAll : LineAccess::kOpenOnes;
  const Machine machine =
      Machine::Now(isGiven ? std::optional(common.RelayPort()) : std::nullopt, lines);
  const uint16_t relayPort =
      isGiven ? common.RelayPort() : static_cast<uint16_t>(machine.configuration.relayPort);
  Report service = ExamineService(machine, relayPort);
  NotePeers(service);
  bool anyFault = Print(service, common.json);
  std::vector<std::string> ports = options.ports;
  if (ports.empty()) {
    for (const ConfiguredPort& configured : machine.configuration.ports) {
      ports.push_back(configured.name);
    }
  }
  for (const std::string& name : ports) {
    anyFault |= Print(ExaminePort(machine, name, lines), common.json);
  }
  return anyFault ? kExitDifferent : kExitDone;
}

void Add(SubCommand& command, const CommonOptions& common) {
  const auto options = std::make_shared<Options>();
  command.Arguments("PORT", options->ports, "Ports to look at; all configured ones without", false);
  command.Flag("--open", options->open,
               "Read the line counters also of ports that nobody has open; this moves their DTR");
  command.Runs([&common, options] { return Doctor(common, *options); });
}

const Registration kRegistration("doctor", "Say what is wrong with the service and its ports", Add);

}  // namespace
