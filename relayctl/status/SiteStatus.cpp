// SPDX-License-Identifier: MIT
#include "status/SiteStatus.h"

#include <arpa/inet.h>

#include <algorithm>
#include <iterator>

#include "machine/ProcessStat.h"
#include "relay/Error.h"

namespace {

constexpr const char* kStart = "start the service: systemctl start serial-port-handler";

bool IsListening(const Machine& machine, uint16_t relayPort) {
  const std::vector<TcpSocket> sockets = machine.processes.TcpSockets();
  return std::any_of(sockets.begin(), sockets.end(), [relayPort](const TcpSocket& socket) {
    return socket.state == kTcpListening && socket.localPort == relayPort &&
           (socket.localAddress == INADDR_LOOPBACK || socket.localAddress == INADDR_ANY);
  });
}

// All there is to tell would be missing.
void MustSeeProcesses(const SiteStatus& status) {
  if (status.isListening && status.machine.service.mayBeHidden) {
    throw relay::Error(relay::ErrorKind::kSystem,
                       "something listens on 127.0.0.1:" + std::to_string(status.relayPort) +
                           ", and this user sees only processes of its own (hidepid of /proc): "
                           "run this as root");
  }
}

std::string UnitText(const ServiceUnit& unit) {
  return unit.name.empty() ? ""
                           : ": " + unit.name + " is " + unit.state +
                                 (unit.result.empty() || unit.result == "success"
                                      ? ""
                                      : ", " + unit.result + " " + std::to_string(unit.lastStatus));
}

void ExaminePresence(const SiteStatus& status, Report& report) {
  const Machine& machine = status.machine;
  if (!machine.service.process && !machine.service.mayBeHidden) {
    report.Fault("the service does not run" + UnitText(machine.unit), kStart);
  } else if (status.isListening && machine.activity.links.empty()) {
    report.Warning("no relay service is connected: no port is open",
                   "start the relay service; when it left by itself, its own log tells why");
  }
  // What cannot be seen must not pass for healthy.
  if (machine.service.process && !machine.activity.callsAreShown) {
    report.Warning("this user may not see what the service does: one that hangs looks the same",
                   "run this as root");
  }
}

// A port that is away has its own words; that no adapter is at its place is the same thing again.
void ExaminePorts(const SiteStatus& status, Report& report) {
  for (const OpenPort& port : status.ports) {
    Report one = ExaminePort(status.machine, port.name, LineAccess::kNone);
    for (Finding& finding : one.findings) {
      const bool isKnown = finding.severity == Severity::kFault && port.state == PortState::kAway;
      if (finding.severity != Severity::kGood && !isKnown) {
        finding.text = port.name + ": " + finding.text;
        report.findings.push_back(std::move(finding));
      }
    }
  }
}

void Sort(const Report& report, SiteStatus& status) {
  for (const Severity severity : {Severity::kFault, Severity::kWarning}) {
    std::copy_if(report.findings.begin(), report.findings.end(),
                 std::back_inserter(status.attention),
                 [severity](const Finding& finding) { return finding.severity == severity; });
  }
  std::copy_if(report.findings.begin(), report.findings.end(), std::back_inserter(status.notes),
               [](const Finding& finding) { return finding.severity == Severity::kNote; });
}

}  // namespace

SiteStatus LookAtSite(std::optional<uint16_t> givenRelayPort) {
  SiteStatus status;
  status.machine = Machine::Now(givenRelayPort, LineAccess::kNone);
  status.time = SecondsSince1970();  // behind all that was seen
  status.relayPort =
      givenRelayPort.value_or(static_cast<uint16_t>(status.machine.configuration.relayPort));
  status.isListening = IsListening(status.machine, status.relayPort);
  MustSeeProcesses(status);
  status.ports = OpenPortsOf(status.machine);
  Report report{"site"};
  ExaminePresence(status, report);
  const std::vector<Finding> service = ExamineService(status.machine, status.relayPort).findings;
  report.findings.insert(report.findings.end(), service.begin(), service.end());
  ExaminePorts(status, report);
  Sort(report, status);
  const bool isDown = !status.machine.service.process || !status.isListening;
  status.health = isDown                     ? Health::kDown
                  : status.attention.empty() ? Health::kGood
                                             : Health::kNeedsAttention;
  return status;
}

const LinkActivity* ServedLink(const SiteStatus& status) {
  const std::vector<LinkActivity>& links = status.machine.activity.links;
  const auto served = std::find_if(links.begin(), links.end(), IsServed);
  return served != links.end() ? &*served : nullptr;
}

PeerView PeerOf(const SiteStatus& status, const LinkActivity& link) {
  const ProcessTable& processes = status.machine.processes;
  const std::vector<TcpSocket> sockets = processes.TcpSockets();
  const TcpSocket* const peer = PeerOf(link.socket, sockets);
  PeerView view;
  view.hasLeft = link.socket.state == kTcpPeerHasLeft;
  view.processes = processes.OwnersOfPeer(link.socket, sockets);
  if (peer != nullptr && peer->inode != 0) {
    view.user = UserName(peer->user);
  }
  return view;
}

size_t WaitingPeers(const SiteStatus& status) {
  const std::vector<LinkActivity>& links = status.machine.activity.links;
  return static_cast<size_t>(
      std::count_if(links.begin(), links.end(), [](const LinkActivity& link) {
        return !IsServed(link) && link.socket.state == kTcpEstablished;
      }));
}

double ProcessorShare(const SiteStatus& status) {
  const ServiceActivity& activity = status.machine.activity;
  uint64_t millis = 0;
  for (const ThreadActivity& thread : activity.threads) {
    millis += thread.processorMillis;
  }
  return activity.moment.count() == 0
             ? 0
             : static_cast<double>(millis) / static_cast<double>(activity.moment.count());
}

const char* WordOf(Health health) {
  return health == Health::kGood ? "healthy" : health == Health::kDown ? "down" : "needs attention";
}

const char* WordOf(PortState state) {
  switch (state) {
    case PortState::kOpen:
      return "open";
    case PortState::kAway:
      return "away";
    case PortState::kMayBeAway:
      return "away or not open";
    case PortState::kNotOpen:
      return "not open";
    case PortState::kUnknown:
      break;
  }
  return "not known";
}
