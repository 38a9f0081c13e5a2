// SPDX-License-Identifier: MIT
#include "doctor/OpenPorts.h"

#include <algorithm>

#include "machine/TerminalDevice.h"
#include "show/Spans.h"

namespace {

const OpenLine* LineAt(const Machine& machine, const std::string& node) {
  const TerminalNode found = InspectNode(node);
  const std::vector<OpenLine>& lines = machine.activity.lines;
  const auto line = std::find_if(lines.begin(), lines.end(), [&](const OpenLine& one) {
    return found.isCharacterDevice && one.number == found.number;
  });
  return line != lines.end() ? &*line : nullptr;
}

bool IsHeld(const Machine& machine, const std::string& node) {
  return LineAt(machine, node) != nullptr;
}

// The devices that the service has let go of, and does not have again.
std::vector<std::string> LostDevices(const Machine& machine) {
  std::vector<std::string> lost = machine.log.Lost(LinkedSince(machine).value_or(0));
  std::erase_if(lost, [&](const std::string& node) { return IsHeld(machine, node); });
  return lost;
}

void TakeThreads(const Machine& machine, dev_t number, OpenPort& port) {
  for (const ThreadActivity& thread : machine.activity.threads) {
    if (thread.receivesFrom == number) {
      port.openedAt = thread.startedAt;
      port.receivedBytes = thread.receivedBytes;
    }
    if (!thread.terminal.empty() && thread.terminalNumber == number) {
      port.writer = &thread;
    }
  }
}

// Only what must be so: as many ports are away as threads have no line, and those are among the
// ports that have none.
void FindAway(const Machine& machine, std::vector<OpenPort>& ports) {
  const unsigned away = machine.activity.portsAway;
  const auto isClosed = [](const OpenPort& port) { return port.state == PortState::kNotOpen; };
  const auto closed = static_cast<unsigned>(std::count_if(ports.begin(), ports.end(), isClosed));
  const std::vector<std::string> lost = LostDevices(machine);
  for (OpenPort& port : ports) {
    if (away == 0 || !isClosed(port)) {
      continue;
    }
    port.state = closed == away ? PortState::kAway : PortState::kMayBeAway;
    if (closed == 1 && lost.size() == 1) {
      port.awaySince = machine.log.LostAt(lost.front(), LinkedSince(machine).value_or(0));
    }
  }
}

std::string NamesIn(const std::vector<OpenPort>& ports, PortState state) {
  std::string names;
  for (const OpenPort& port : ports) {
    if (port.state == state) {
      names += (names.empty() ? "" : ", ") + port.name;
    }
  }
  return names;
}

std::string SinceText(const OpenPort& port) {
  return port.awaySince ? " since " + ClockText(*port.awaySince) : "";
}

void ExamineAway(const OpenPort& port, Report& report) {
  if (InspectNode(port.node).exists) {
    report.Fault(port.name + " is open and has had no device" + SinceText(port) +
                     "; an adapter is at its place again, as " + port.node +
                     ", and the service tries the node of before",
                 "have the relay service close and open the port; if it happens often, look who "
                 "holds the old node: fuser -v /dev/ttyUSB*");
  } else {
    report.Fault(port.name + " is open and its device is away" + SinceText(port),
                 "plug it in again at the same place: the port goes on by itself");
  }
}

// Devices that went and came back since the link stands: their ports go on by the node's name.
void ExamineReturned(const Machine& machine, Report& report) {
  std::string names;
  unsigned count = 0;
  for (const std::string& node : machine.log.Lost(LinkedSince(machine).value_or(0))) {
    if (IsHeld(machine, node)) {
      names += (names.empty() ? "" : ", ") + node;
      ++count;
    }
  }
  if (count > 1) {
    report.Warning(names +
                       " were away and came back: the ports go on by these names, and may have "
                       "each other's lines when the adapters came back in another order",
                   "have the relay service close and open the ports; give each adapter a connector "
                   "of its own");
  } else if (count == 1) {
    report.Note(names + " was away and came back");
  }
}

void ExamineMissingThreads(const ServiceActivity& activity, Report& report) {
  constexpr const char* kRaise =
      "raise the limit of processes and threads to 16 at least (ulimit -u, TasksMax), then restart "
      "the service: systemctl restart serial-port-handler";
  if (activity.peerIsUnserved) {
    report.Fault(
        "a peer is connected and the service has no thread that receives from it: it does "
        "nothing that is sent",
        kRaise);
  }
  if (activity.portsUnserved > 0) {
    report.Fault(std::to_string(activity.portsUnserved) +
                     " of the lines that are open have no receive thread: what their devices send "
                     "is not read",
                 kRaise);
  }
}

}  // namespace

std::optional<double> LinkedSince(const Machine& machine) {
  const std::vector<LinkActivity>& links = machine.activity.links;
  const std::vector<ThreadActivity>& threads = machine.activity.threads;
  std::optional<double> first;
  if (std::none_of(links.begin(), links.end(), IsServed)) {
    return first;
  }
  for (size_t index = 1; index < threads.size(); ++index) {
    first = std::min(first.value_or(threads[index].startedAt), threads[index].startedAt);
  }
  return first;
}

std::vector<OpenPort> OpenPortsOf(const Machine& machine) {
  std::vector<OpenPort> ports;
  for (const ConfiguredPort& configured : machine.configuration.ports) {
    OpenPort port;
    port.name = configured.name;
    port.node = NodeOf(machine, configured.name);
    const OpenLine* const line = LineAt(machine, port.node);
    if (line != nullptr) {
      port.state = PortState::kOpen;
      TakeThreads(machine, line->number, port);
    } else if (machine.service.process ? machine.activity.filesAreShown
                                       : !machine.service.mayBeHidden) {
      port.state = PortState::kNotOpen;
    }
    ports.push_back(port);
  }
  FindAway(machine, ports);
  return ports;
}

void ExamineOpenPorts(const Machine& machine, Report& report) {
  ExamineMissingThreads(machine.activity, report);
  const std::vector<OpenPort> ports = OpenPortsOf(machine);
  for (const OpenPort& port : ports) {
    if (port.state == PortState::kAway) {
      ExamineAway(port, report);
    }
  }
  const std::string several = NamesIn(ports, PortState::kMayBeAway);
  if (!several.empty()) {
    report.Fault(std::to_string(machine.activity.portsAway) +
                     " of these ports are open and their "
                     "devices are away: " +
                     several,
                 "plug in again what is missing, at the same place: the ports go on by themselves");
  }
  ExamineReturned(machine, report);
}
