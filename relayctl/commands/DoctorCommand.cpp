// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "Commands.h"
#include "ExitStatus.h"
#include "MachineCommands.h"
#include "doctor/Doctor.h"
#include "show/Output.h"

namespace {

struct Arguments {
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

int Doctor(const Settings& settings, const Arguments& arguments) {
  const bool isGiven = settings.givenPort != 0;
  const Machine machine = Machine::Now(isGiven ? std::optional(settings.Port()) : std::nullopt);
  const uint16_t port =
      isGiven ? settings.Port() : static_cast<uint16_t>(machine.configuration.relayPort);
  bool anyFault = Print(ExamineService(machine, port), settings.json);
  std::vector<std::string> ports = arguments.ports;
  if (ports.empty()) {
    for (const ConfiguredPort& configured : machine.configuration.ports) {
      ports.push_back(configured.name);
    }
  }
  for (const std::string& name : ports) {
    anyFault |= Print(ExaminePort(machine, name, arguments.open), settings.json);
  }
  return anyFault ? kExitDifferent : kExitDone;
}

}  // namespace

void AddDoctor(CommandLine& line) {
  const auto arguments = std::make_shared<Arguments>();
  SubCommand& command = line.Add("doctor", "Say what is wrong with the service and its ports");
  command.Arguments("PORT", arguments->ports, "Ports to look at; all configured ones without",
                    false);
  command.Flag("--open", arguments->open,
               "Read the line counters also of ports that nobody has open; this moves their DTR");
  command.Runs([&line, arguments] { return Doctor(line.Common(), *arguments); });
}
