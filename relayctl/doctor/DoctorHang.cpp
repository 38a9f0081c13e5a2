// SPDX-License-Identifier: MIT
#include "doctor/DoctorHang.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <set>

#include "machine/TerminalDevice.h"
#include "show/Spans.h"

namespace {

constexpr const char* kRestart = "restart the service: systemctl restart serial-port-handler";

// That a peer has not read, before it is worth a word.
constexpr double kLongWait = 0.1;

std::string SecondsText(double seconds) {
  std::array<char, 32> text{};
  (void)std::snprintf(text.data(), text.size(), "%.1f s", seconds);
  return text.data();
}

std::string SecondsOf(const ServiceActivity& activity) {
  return SecondsText(static_cast<double>(activity.moment.count()) / 1000);
}

// That the thread writes to; nullptr: none that is configured.
const ConfiguredPort* PortOf(const Machine& machine, const ThreadActivity& thread) {
  for (const ConfiguredPort& port : machine.configuration.ports) {
    const std::string node = NodeOf(machine, port.name);
    if (!node.empty() && InspectNode(node).number == thread.terminalNumber) {
      return &port;
    }
  }
  return nullptr;
}

// "/dev/ttyUSB0 (#USBSerialPort3)"
std::string TerminalOf(const Machine& machine, const ThreadActivity& thread) {
  const ConfiguredPort* const port = PortOf(machine, thread);
  return thread.terminal + (port != nullptr ? " (" + port->name + ")" : "");
}

std::string PortsWithoutDevice(const Machine& machine) {
  std::string names;
  for (const ConfiguredPort& port : machine.configuration.ports) {
    const std::string node = NodeOf(machine, port.name);
    if (node.empty() || !InspectNode(node).exists) {
      names += (names.empty() ? "" : ", ") + port.name;
    }
  }
  return names.empty() ? "" : "; configured and without a device: " + names;
}

enum class WriteState { kNone, kMoves, kUnclear, kStuck };

// The longest that a line may take from one step to the next: the kernel wakes a writer up when its
// buffer has all but run empty.
double LongestStep(const Machine& machine, const ThreadActivity& thread) {
  constexpr double kBits = 4096 * 10;
  constexpr double kSlowest = 2400;
  const ConfiguredPort* const port = PortOf(machine, thread);
  const double baud = port != nullptr ? std::atof(port->words.front().c_str()) : 0;
  return 1.5 * kBits / (baud > 0 ? baud : kSlowest);
}

// Where the line itself does not tell how far it is, time has to.
WriteState StateOf(const Machine& machine, const ThreadActivity& thread) {
  if (thread.terminal.empty() || (!thread.terminalMoves && !thread.wroteAlways)) {
    return WriteState::kNone;
  }
  if (thread.terminalMoves) {
    return WriteState::kMoves;
  }
  return thread.terminalTells || thread.idle >= LongestStep(machine, thread) ? WriteState::kStuck
                                                                             : WriteState::kUnclear;
}

// What a thread that is driven by events does in one go takes less than a millisecond. One that
// offers the same write again and again waits as well now and then: for a lock of another thread.
bool Spins(const ThreadActivity& thread) {
  constexpr uint64_t kMillisAtATime = 20;
  return thread.processorMillis >= kMillisAtATime * (thread.waits + 1);
}

std::string WaitsOf(const ThreadActivity& thread) {
  return thread.waits == 0   ? "never waited"
         : thread.waits == 1 ? "waited once"
                             : "waited " + std::to_string(thread.waits) + " times";
}

// Nobody has read it, as far as can be seen. The end that the peer has sent counts as a byte.
bool IsUnread(const LinkActivity& link) {
  return link.socket.inode != 0 && link.wasUnread && !link.wasTakenFrom;
}

// Whether the service may be busy with a line that is slow, which is no fault.
bool MayBeSlowLine(const Machine& machine) {
  const ServiceActivity& activity = machine.activity;
  return !activity.callsAreShown || std::any_of(activity.threads.begin(), activity.threads.end(),
                                                [&](const ThreadActivity& thread) {
                                                  const WriteState state = StateOf(machine, thread);
                                                  return state == WriteState::kMoves ||
                                                         state == WriteState::kUnclear;
                                                });
}

void ExamineState(const Machine& machine, Report& report) {
  const pid_t pid = machine.service.process->pid;
  if (machine.activity.state == 'T') {
    report.Fault("the service is stopped by a signal, and does nothing",
                 "let it go on: kill -CONT " + std::to_string(pid));
  } else if (machine.activity.state == 't') {
    report.Fault("a debugger holds the service, and it does nothing", "end the debugger");
  }
}

// That a thread has not moved for.
std::string StillText(const Machine& machine, const ThreadActivity& thread) {
  return SecondsText(
      std::max(static_cast<double>(machine.activity.moment.count()) / 1000, thread.idle));
}

void ExamineStuckWrite(const Machine& machine, const ThreadActivity& thread, Report& report) {
  const bool isShown = !thread.waitChannel.empty() && thread.waitChannel != "0";
  report.Fault("the write to " + TerminalOf(machine, thread) + " has not moved for " +
                   StillText(machine, thread) + ": the device takes no bytes" +
                   (thread.terminalTells ? "" : ", or far fewer than its speed allows") +
                   (isShown ? " (thread " + std::to_string(thread.id) + " waits in " +
                                  thread.waitChannel + ")"
                            : ""),
               "wake the device up, or set flow = none if it has no flow control; then restart "
               "the service");
}

void ExamineThread(const Machine& machine, const ThreadActivity& thread, Report& report) {
  switch (StateOf(machine, thread)) {
    case WriteState::kStuck:
      ExamineStuckWrite(machine, thread, report);
      break;
    case WriteState::kMoves:
      report.Note("a write to " + TerminalOf(machine, thread) +
                  " is under way, and moves: what the peer sends waits behind it");
      break;
    case WriteState::kUnclear:
      report.findings.push_back(
          {thread.idle > 0 ? Severity::kNote : Severity::kWarning,
           "a write to " + TerminalOf(machine, thread) + " has not moved for " +
               StillText(machine, thread) + ": the line is slow, or the device takes no bytes",
           machine.activity.linesWereAsked ? "look again: this line does not tell how far it is"
                                           : "relayctl doctor asks the line itself which it is"});
      break;
    case WriteState::kNone:
      break;
  }
  if (thread.waitsForReader) {
    report.Warning("thread " + std::to_string(thread.id) +
                       " waits for whoever reads the service's standard streams, and what a port "
                       "receives waits with it",
                   "have them read, or give both streams a file, the journal or /dev/null");
  }
}

// A write that is offered again and again. A thread that has more work than time hardly
// waits either, but then somebody reads.
void ExamineSpinning(const Machine& machine, const ThreadActivity& thread, Report& report) {
  const ServiceActivity& activity = machine.activity;
  const bool nobodyReads =
      std::any_of(activity.links.begin(), activity.links.end(), [&](const LinkActivity& link) {
        return IsUnread(link) || (activity.callsAreShown && link.socket.inode != 0 &&
                                  !link.isWaitedFor && !link.wasTakenFrom);
      });
  const std::string text = "thread " + std::to_string(thread.id) + " has taken " +
                           std::to_string(thread.processorMillis) + " ms of a processor in " +
                           SecondsOf(activity) + " and " + WaitsOf(thread);
  if (nobodyReads) {
    report.Fault(text + ", and no command is read: a write is offered again and again" +
                     PortsWithoutDevice(machine),
                 "plug the adapter in again at the same place, or " + std::string(kRestart));
  } else {
    report.Warning(text, "look again: a write that is offered again and again does that");
  }
}

std::string PeerNameOf(const Machine& machine, const LinkActivity& link) {
  return machine.processes.NamesOfPeer(link.socket, machine.processes.TcpSockets());
}

void ExamineUnread(const Machine& machine, const LinkActivity& link, Report& report) {
  const ServiceActivity& activity = machine.activity;
  const bool hasLeft = link.socket.state == kTcpPeerHasLeft;
  const uint64_t count = link.socket.unread - (hasLeft ? 1 : 0);
  const std::string who = hasLeft ? "the peer has left, which the service has not noticed for " +
                                        SecondsOf(activity) + "; "
                                  : "";
  const std::string what = who + BytesText(count) + " of " +
                           (hasLeft ? "it" : PeerNameOf(machine, link)) +
                           " wait to be read, and none was in " + SecondsOf(activity);
  if (!MayBeSlowLine(machine)) {
    report.Fault(what + ": the service hangs", kRestart);
  } else if (activity.callsAreShown) {
    report.Note(what);
  } else {
    report.Warning(what + ": the service hangs, or writes to a slow line",
                   "run this as root to see which");
  }
}

void ExamineLink(const Machine& machine, const LinkActivity& link, Report& report) {
  const ServiceActivity& activity = machine.activity;
  if (IsUnread(link)) {
    ExamineUnread(machine, link, report);
  }
  if (link.socket.inode != 0 && link.wasUnsent && !link.peerHasRead) {
    const std::string peer = PeerNameOf(machine, link);
    report.Fault(peer + " does not read: " + BytesText(link.socket.unsent) +
                     " wait for it, and it took none in " + SecondsOf(activity) +
                     "; that holds up answers and what the ports receive",
                 "mend or restart " + peer);
  }
  if (IsServed(link) && link.traffic && link.traffic->windowWasFull >= kLongWait) {
    report.Note(PeerNameOf(machine, link) + " has let the service wait for room for " +
                    SecondsText(link.traffic->windowWasFull) +
                    " in all: an answer to what it sent meanwhile may stand inside a notification",
                "a relay service must read at all times; have it connect afresh");
  }
}

// One that nobody has accepted: the service takes one peer at a time.
void ExamineQueue(const Machine& machine, Report& report) {
  const std::vector<LinkActivity>& links = machine.activity.links;
  const bool isServed = std::any_of(links.begin(), links.end(), IsServed);
  std::set<std::string> waiting;
  for (const LinkActivity& link : links) {
    if (link.socket.inode == 0 && link.socket.state == kTcpEstablished && !isServed) {
      waiting.insert(PeerNameOf(machine, link));
    }
  }
  for (const std::string& names : waiting) {
    report.Fault(names + " is connected and has not been accepted for " +
                     SecondsOf(machine.activity) + ": the service hangs",
                 kRestart);
  }
}

}  // namespace

void ExamineActivity(const Machine& machine, Report& report) {
  const ServiceActivity& activity = machine.activity;
  if (activity.moment.count() == 0) {
    return;
  }
  ExamineState(machine, report);
  for (const Process& search : activity.searches) {
    report.Fault("the service waits for " + NameOf(search) + ", which has run for long",
                 "end it: kill " + std::to_string(search.pid) +
                     "; the adapter then counts as "
                     "not found. Then see why: systemctl status systemd-udevd");
  }
  for (const ThreadActivity& thread : activity.threads) {
    ExamineThread(machine, thread, report);
    if (Spins(thread)) {
      ExamineSpinning(machine, thread, report);
    }
  }
  for (const LinkActivity& link : activity.links) {
    ExamineLink(machine, link, report);
  }
  ExamineQueue(machine, report);
  if (!activity.callsAreShown) {
    report.Note("what the threads of " + NameOf(*machine.service.process) +
                    " wait for may not be looked at by this user: the port of a write that is "
                    "stuck cannot be named",
                "run this as root");
  }
}
