// SPDX-License-Identifier: MIT
#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "CommandLine.h"
#include "ExitStatus.h"
#include "Input.h"
#include "link/Loop.h"
#include "machine/Files.h"
#include "machine/RunningService.h"
#include "machine/Suggest.h"
#include "show/Json.h"
#include "show/Output.h"

namespace {

// How often the names of the machine's device nodes are looked at, and how long after a change
// there the database is: udev writes it after the node has appeared.
constexpr std::chrono::milliseconds kPause{500};
constexpr std::chrono::seconds kSettling{10};

struct Options {
  std::string file;
  bool once = false;
  bool places = false;
  bool configured = false;
  unsigned count = 0;
};

const char* WordOf(AdapterChange::Kind kind) {
  return kind == AdapterChange::Kind::kPresent   ? "present"
         : kind == AdapterChange::Kind::kPlugged ? "plugged"
                                                 : "unplugged";
}

MachineConfiguration ConfigurationNow() {
  return ReadConfigurationOf(FindService(ProcessTable(), std::nullopt));
}

int ListConfigured(bool asJson) {
  for (const ConfiguredPort& port : ConfigurationNow().ports) {
    PrintLine(asJson ? JsonLine().Add("event", "configured").Add("port", port.name).Text()
                     : port.name);
  }
  return kExitDone;
}

// The names of terminals and of raw USB devices: cheap to look at, and different after each change.
std::string NodeNames() {
  std::string names;
  for (const std::string& node : PathsIn("/dev")) {
    names += node.starts_with("/dev/tty") ? node + " " : "";
  }
  for (const std::string& bus : PathsIn("/dev/bus/usb")) {
    for (const std::string& device : PathsIn(bus)) {
      names += device + " ";
    }
  }
  return names;
}

class Suggestions {
 public:
  // `isOwn`: of the machine that this runs on, whose configuration then counts.
  Suggestions(bool printJson, bool isOwn) : asJson(printJson), ownMachine(isOwn) {}

  // Prints what has changed; gives how many adapters were plugged in or out.
  unsigned Look(const UdevSnapshot& snapshot) {
    unsigned changes = 0;
    const MachineConfiguration configuration =
        ownMachine ? ConfigurationNow() : MachineConfiguration{};
    for (const AdapterChange& change : watch.Look(snapshot)) {
      Print(change, configuration);
      changes += change.kind != AdapterChange::Kind::kPresent ? 1 : 0;
    }
    return changes;
  }

 private:
  void Print(const AdapterChange& change, const MachineConfiguration& configuration) const {
    const SerialAdapter& adapter = change.adapter;
    if (!asJson) {
      PrintLine(change.kind == AdapterChange::Kind::kUnplugged
                    ? "- " + adapter.node + " is unplugged"
                    : (change.kind == AdapterChange::Kind::kPlugged ? "+ " : "") +
                          Explain(adapter, ownMachine ? &configuration : nullptr));
      return;
    }
    JsonLine line;
    line.Add("event", WordOf(change.kind)).Add("node", adapter.node).Add("place", adapter.place);
    line.Add("vendorId", adapter.vendorId).Add("productId", adapter.productId);
    line.AddText("vendor", adapter.vendor).AddText("model", adapter.model);
    line.AddText("serialNumber", adapter.serialNumber).Add("driver", adapter.driver);
    line.Add("port", adapter.portName);
    if (ownMachine) {
      line.Add("configured", configuration.Find(adapter.portName) != nullptr);
    }
    PrintLine(line.Text());
  }

  const bool asJson;
  const bool ownMachine;
  AdapterWatch watch;
};

int ListFile(const std::string& path, bool asJson) {
  const UdevSnapshot snapshot(ReadAll(path));
  if (snapshot.Devices().empty()) {
    throw relay::Error(relay::ErrorKind::kUsage,
                       path + ": not the text of \"udevadm info --export-db\"");
  }
  (void)Suggestions(asJson, false).Look(snapshot);
  if (snapshot.Adapters().empty()) {
    PrintNotice("no USB serial adapter in " + path);
  }
  return kExitDone;
}

int Watch(bool asJson, const Options& options) {
  Suggestions suggestions(asJson, true);
  Loop loop;
  std::string error;
  std::string names = NodeNames();
  const UdevSnapshot first = UdevSnapshot::Take(error);
  if (!error.empty()) {
    throw relay::Error(relay::ErrorKind::kSystem, error);
  }
  (void)suggestions.Look(first);
  if (options.once) {
    return kExitDone;
  }
  PrintNotice(first.Adapters().empty() ? "no USB serial adapter yet; plug one in"
                                       : "waiting for the next one");
  unsigned changes = 0;
  auto settled = relay::Clock::now() + kSettling;  // what came while the first look was taken
  auto next = relay::Clock::now() + kPause;
  loop.When([&] { return std::optional(next); },
            [&] {
              const std::string now = NodeNames();
              if (now != names) {
                names = now;
                settled = relay::Clock::now() + kSettling;
              }
              if (relay::Clock::now() < settled) {
                std::string failure;
                const UdevSnapshot snapshot = UdevSnapshot::Take(failure);
                changes += failure.empty() ? suggestions.Look(snapshot) : 0;
              }
              next = relay::Clock::now() + kPause;
            });
  (void)loop.Run([&] { return options.count > 0 && changes >= options.count; });
  return kExitDone;  // a signal is its usual end
}

int ListPlaces(bool asJson) {
  for (const NamedPlace& named : NamedPlaces()) {
    PrintLine(asJson ? JsonLine()
                           .Add("event", "place")
                           .Add("port", named.port)
                           .Add("place", named.place)
                           .Text()
                     : named.port + "  " + named.place);
  }
  return kExitDone;
}

int Suggest(const CommonOptions& common, const Options& options) {
  if (options.places) {
    return ListPlaces(common.json);
  }
  if (options.configured) {
    return ListConfigured(common.json);
  }
  return options.file.empty() ? Watch(common.json, options) : ListFile(options.file, common.json);
}

void Add(SubCommand& command, const CommonOptions& common) {
  const auto options = std::make_shared<Options>();
  command.Flag("--once", options->once, "Tell of the adapters that are there, and leave");
  command.Option("--count", options->count, "N", "Leave after so many are plugged in or out");
  command.Option("--file", options->file, "FILE",
                 "A saved text of \"udevadm info --export-db\", also of another machine");
  command.Flag("--places", options->places, "List the places that have names");
  command.Flag("--configured", options->configured, "List the ports that are configured");
  command.Runs([&common, options] { return Suggest(common, *options); });
}

const Registration kRegistration("suggest", "Tell which port name reaches an adapter", Add);

}  // namespace
