// SPDX-License-Identifier: MIT
#include "doctor/DoctorLine.h"

#include <algorithm>

#include "machine/Files.h"

namespace {

// An adapter that waits longer than this before it passes a lone byte on slows every answer down.
constexpr int kQuickLatencyMillis = 1;

void ExamineChip(const TerminalHardware& hardware, Report& report) {
  report.Fact("driver", hardware.driver);
  if (hardware.uartType == 0) {
    report.Fault("no UART answers at this node: an open is answered with status 4",
                 "enable it in the firmware, or describe its address with setserial");
  }
}

void ExamineQuality(const TerminalHardware& hardware, const ProcessTable& processes,
                    Report& report) {
  if (!hardware.name.empty() && processes.IsConsole(hardware.name)) {
    report.Warning("the kernel writes its messages to this line",
                   "remove console=" + hardware.name + " from the kernel's command line");
  }
  if (!hardware.latencyMillis) {
    return;
  }
  report.Fact("latency timer", std::to_string(*hardware.latencyMillis) + " ms");
  if (*hardware.latencyMillis > kQuickLatencyMillis) {
    report.Warning("the adapter holds received bytes back for up to " +
                       std::to_string(*hardware.latencyMillis) + " ms",
                   "echo 1 >/sys/class/tty/" + hardware.name +
                       "/device/latency_timer, as a udev rule for good");
  }
}

void ExamineAccess(const Machine& machine, const TerminalNode& node, Report& report) {
  report.Fact("permissions", node.Permissions());
  report.Fact("may be opened", node.mayBeOpened);
  if (!node.mayBeOpened) {
    report.Note("this user (" + CurrentUser() + ") may not open it",
                "matters only without the service: adduser " + CurrentUser() + " " + node.Group());
  }
  for (const Process& service : machine.processes.Named(kServiceShortName)) {
    if (!MayOpen(node, service)) {
      report.Fault("the service, " + NameOf(service) +
                       ", may not open it: an open is answered with status 4",
                   "let it run with the group " + node.Group() + ", and start it anew");
    }
  }
}

std::string HowToEnd(const Process& process, const std::string& terminal) {
  if (process.command == "agetty" || process.command == "login") {
    return "systemctl disable --now serial-getty@" + terminal + ".service";
  }
  if (process.command == "ModemManager" || process.command == "brltty") {
    return "systemctl disable --now " + process.command + ".service";
  }
  return "end it: kill " + std::to_string(process.pid);
}

// Whether anybody has it open.
bool ExamineHolders(const Machine& machine, const TerminalNode& node, const std::string& terminal,
                    Report& report) {
  const ProcessSearch search = machine.processes.HoldersOf(node.number);
  FactList holders;
  for (const Process& process : search.found) {
    holders.push_back(NameOf(process));
    if (!IsService(process)) {
      report.Warning(NameOf(process) + " has it open: two readers take each other's bytes",
                     HowToEnd(process, terminal));
    }
  }
  if (!holders.empty()) {
    report.Fact("held by", holders);
  }
  if (!search.complete) {
    report.Note("not every process may be looked into by this user",
                "run this as root to see all who have the port open");
  }
  return !search.found.empty();
}

// The properties of a device and of all that it is plugged into.
bool AnyProperty(const UdevSnapshot& udev, std::string path, const std::string& key,
                 const std::string& value = "") {
  for (; path.find('/') != std::string::npos; path.erase(path.rfind('/'))) {
    const UdevDevice* const device = udev.AtPath(path);
    const std::string found = device != nullptr ? device->Property(key) : "";
    if (!found.empty() && (value.empty() || found == value)) {
      return true;
    }
  }
  return false;
}

bool AnyRule(const std::vector<std::string>& folders, const std::string& part) {
  return std::any_of(folders.begin(), folders.end(), [&](const std::string& folder) {
    const std::vector<std::string> rules = PathsIn(folder);
    return std::any_of(rules.begin(), rules.end(), [&](const std::string& rule) {
      return NameIn(rule).find(part) != std::string::npos;
    });
  });
}

// Programs that open every adapter that could be theirs. Only USB ones.
void ExamineGrabbers(const Machine& machine, const UdevDevice& device, Report& report) {
  const bool ignored = AnyProperty(machine.udev, device.path, "ID_MM_DEVICE_IGNORE", "1") ||
                       AnyProperty(machine.udev, device.path, "ID_MM_PORT_IGNORE", "1");
  const bool runs = !machine.processes.Named("ModemManager").empty();
  if (ignored) {
    report.Good("ModemManager leaves it alone");
  } else if (runs || AnyRule(machine.ruleFolders, "77-mm-")) {
    report.Warning(
        std::string("ModemManager ") + (runs ? "runs" : "is installed") +
            " and may send its commands to a new adapter",
        "a udev rule with ENV{ID_MM_DEVICE_IGNORE}=\"1\" for it, or remove ModemManager");
  }
  if (AnyProperty(machine.udev, device.path, "BRLTTY_BRAILLE_DRIVER")) {
    report.Warning("brltty takes this adapter for a Braille display and detaches its node",
                   "remove brltty, or mask its rule: ln -s /dev/null "
                   "/etc/udev/rules.d/85-brltty.rules");
  }
}

struct Loss {
  const char* name;
  int LineCounters::*count;
  const char* meaning;
  const char* mend;
};

constexpr Loss kLosses[] = {
    {"overrun", &LineCounters::overrun, "overruns: the chip lost bytes",
     "lower the baud rate, use hardware flow control, or look what holds interrupts up"},
    {"bufferOverrun", &LineCounters::bufferOverrun, "buffer overruns: nobody read in time",
     "keep the relay reading, or use flow control"},
    {"framing", &LineCounters::framing, "framing errors",
     "compare baud rate, data bits and stop bits with the device's"},
    {"parity", &LineCounters::parity, "parity errors", "compare the parity with the device's"},
    {"breaks", &LineCounters::breaks, "breaks",
     "look at the cable and the device's power; some devices mean something by it"},
};

void ExamineCounters(const std::string& path, Report& report) {
  const std::optional<LineCounters> counters = ReadCounters(path);
  if (!counters) {
    return;
  }
  FactCounts counts = {{"received", counters->received}, {"sent", counters->sent}};
  for (const Loss& loss : kLosses) {
    const int count = *counters.*loss.count;
    counts.emplace_back(loss.name, count);
    if (count > 0) {
      report.Warning(std::to_string(count) + " " + loss.meaning, loss.mend);
    }
  }
  report.Fact("counters", counts);
}

}  // namespace

void ExamineLine(const Machine& machine, const std::string& path, const TerminalNode& node,
                 LineAccess lines, Report& report) {
  const TerminalHardware hardware = InspectHardware(node.number, machine.sys);
  ExamineChip(hardware, report);
  if (lines != LineAccess::kNone) {
    ExamineQuality(hardware, machine.processes, report);
  }
  ExamineAccess(machine, node, report);
  const bool isOpen = ExamineHolders(machine, node, hardware.name, report);
  if (lines == LineAccess::kNone) {
    return;
  }
  const UdevDevice* const device = machine.udev.AtNode(path);
  if (device != nullptr && device->Property("ID_BUS") == "usb") {
    ExamineGrabbers(machine, *device, report);
  }
  if (isOpen || lines == LineAccess::kAll) {
    ExamineCounters(path, report);
  } else {
    report.Note("counters not read: nobody has it open, and opening it would raise DTR",
                "relayctl doctor --open reads them all the same");
  }
}
