// SPDX-License-Identifier: MIT
#include "status/StatusText.h"

#include <array>
#include <cstdio>

#include "show/Output.h"
#include "show/Spans.h"

namespace {

constexpr size_t kIndent = 9;

std::string Padded(const std::string& text, size_t width) {
  return text + std::string(text.size() < width ? width - text.size() : 0, ' ') + " ";
}

// A line, with what it is about in front.
std::string Line(const std::string& subject, const std::string& text) {
  return "  " + Padded(subject, kIndent) + Harmless(text) + "\n";
}

std::string SinceText(const SiteStatus& status, double since) {
  constexpr double kRounding = 2;  // what the kernel tells of a start is in whole seconds
  const double span = status.time - since;
  return "since " + ClockText(since) + " (" + (span < -kRounding ? AgoText(span) : SpanText(span)) +
         ")";
}

std::string FindingLines(const std::string& word, const Finding& finding, Color color,
                         bool isColored) {
  return Paint(word, color, isColored) + ": " + Harmless(finding.text) + "\n" +
         (finding.mend.empty() ? "" : "  -> " + Harmless(finding.mend) + "\n");
}

Color ColorOf(Health health) {
  return health == Health::kGood   ? Color::kGood
         : health == Health::kDown ? Color::kBad
                                   : Color::kWarning;
}

std::string HeadOf(const SiteStatus& status, bool isColored) {
  const std::string word = WordOf(status.health);
  const Color color = ColorOf(status.health);
  if (status.attention.empty()) {
    return Paint(word, color, isColored) + "\n";
  }
  return FindingLines(word, status.attention.front(), color, isColored);
}

std::string Percent(double share) {
  std::array<char, 16> text{};
  (void)std::snprintf(text.data(), text.size(), "%.1f %%", share * 100);
  return text.data();
}

std::string ProcessLines(const SiteStatus& status) {
  const Machine& machine = status.machine;
  const ServiceProcess& process = machine.process;
  const std::string restarts =
      machine.unit.restarts ? ", restarts " + std::to_string(*machine.unit.restarts) : "";
  const std::string descriptors =
      process.descriptors
          ? std::to_string(*process.descriptors) +
                (process.descriptorLimit ? " of " + std::to_string(*process.descriptorLimit) : "")
          : "not shown to this user";
  return Line("service", NameOf(*machine.service.process) + " " +
                             SinceText(status, process.startedAt) + restarts) +
         Line("", "version " + (process.version.empty() ? "not known" : process.version) +
                      ", program " + (process.program.empty() ? "not shown" : process.program)) +
         Line("", "processor " + Percent(ProcessorShare(status)) + " now, " +
                      SpanText(static_cast<double>(process.processorMillis) / 1000) +
                      " in all, memory " + SizeText(process.residentBytes) + ", threads " +
                      std::to_string(process.threads) + ", descriptors " + descriptors);
}

std::string ServiceLines(const SiteStatus& status) {
  const Machine& machine = status.machine;
  std::string lines =
      machine.service.process
          ? ProcessLines(status)
          : Line("service", machine.service.mayBeHidden ? "not shown to this user" : "none runs");
  const std::string unit =
      machine.unit.name.empty() ? "" : "; unit " + machine.unit.name + " " + machine.unit.state;
  const bool exists = machine.configuration.exists;
  lines += Line(
      "", "configuration " + machine.configuration.path + (exists ? "" : " (not there)") + unit);
  const ServiceLog& log = machine.log;
  lines +=
      Line("log", (log.from.empty() ? "" : log.from) +
                      (log.problem.empty() ? "" : (log.from.empty() ? "" : ": ") + log.problem));
  if (const ServiceLogLine* const error = log.LastError(0)) {
    lines += Line("", "last error " + ClockText(error->time) + " (" +
                          AgoText(status.time - error->time) + "): " + error->message);
  }
  return lines;
}

std::string PeerText(const SiteStatus& status, const LinkActivity& link) {
  const PeerView peer = PeerOf(status, link);
  return peer.hasLeft        ? "a peer that has left, which the service has not noticed"
         : peer.user.empty() ? "a peer that is gone"
                             : "peer " + NamesOf(peer.processes) + " of " + peer.user;
}

std::string TrafficLine(const SiteStatus& status, const LinkActivity& link) {
  if (!link.traffic) {
    return Line("", "bytes not known" + (status.machine.activity.trafficProblem.empty()
                                             ? ""
                                             : ": " + status.machine.activity.trafficProblem));
  }
  return Line("", BytesText(link.traffic->received) + " to the service (" +
                      std::to_string(link.socket.unread) + " wait), " +
                      BytesText(link.traffic->sent) + " from it (" +
                      std::to_string(link.socket.unsent) + " wait)");
}

std::string LinkLines(const SiteStatus& status) {
  const std::string where = "127.0.0.1:" + std::to_string(status.relayPort);
  std::string lines =
      Line("link", status.isListening ? where + " listens" : "nothing listens on " + where);
  const LinkActivity* const link = ServedLink(status);
  if (link == nullptr) {
    lines += Line("", "no relay service is connected");
  } else {
    const Machine& machine = status.machine;
    const std::optional<double> since = LinkedSince(machine);
    lines += Line("", PeerText(status, *link) + (since ? " " + SinceText(status, *since) : ""));
    lines += TrafficLine(status, *link);
  }
  const size_t waiting = WaitingPeers(status);
  return lines + (waiting > 0 ? Line("", std::to_string(waiting) + " more wait to be served") : "");
}

// What the port has moved, as far as it can be seen: what it has sent only the line itself knows,
// and a thread that is held up elsewhere cannot be told from those of the other ports.
std::string BytesOf(const SiteStatus& status, const OpenPort& port) {
  const bool isHeldUp = !port.openedAt && status.machine.activity.callsAreShown;
  return port.state != PortState::kOpen ? ""
         : port.receivedBytes           ? ", " + BytesText(*port.receivedBytes) + " received"
         : isHeldUp                     ? ", no thread was seen to wait for its bytes"
                                        : ", bytes not shown to this user";
}

std::string NodeText(const OpenPort& port) {
  return port.node.empty() ? "no device" : (InspectNode(port.node).exists ? "" : "no ") + port.node;
}

std::string PortLine(const SiteStatus& status, const OpenPort& port) {
  const std::optional<double> since = port.awaySince ? port.awaySince : port.openedAt;
  const double begin = LinkedSince(status.machine).value_or(0);
  const ServiceLogLine* const error =
      port.node.empty() ? nullptr : status.machine.log.LastError(begin, port.node);
  return "  " + Padded(Harmless(port.name), 16) + Padded(WordOf(port.state), 9) +
         Harmless(NodeText(port) + (since ? " " + SinceText(status, *since) : "") +
                  BytesOf(status, port) + (port.writer != nullptr ? ", a write is under way" : "") +
                  (error != nullptr
                       ? ", last error " + ClockText(error->time) + ": " + error->message
                       : "")) +
         "\n";
}

}  // namespace

std::string TextOf(const SiteStatus& status, bool isColored) {
  std::string text = HeadOf(status, isColored);
  text += ServiceLines(status) + LinkLines(status);
  for (const OpenPort& port : status.ports) {
    text += PortLine(status, port);
  }
  for (size_t index = 1; index < status.attention.size(); ++index) {
    text += FindingLines("also", status.attention[index], ColorOf(status.health), isColored);
  }
  for (const Finding& note : status.notes) {
    text += FindingLines("note", note, Color::kNote, isColored);
  }
  return text;
}
