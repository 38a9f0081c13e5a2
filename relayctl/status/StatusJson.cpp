// SPDX-License-Identifier: MIT
#include "show/Json.h"
#include "status/StatusText.h"

namespace {

std::vector<JsonLine> FindingsOf(const std::vector<Finding>& findings) {
  std::vector<JsonLine> entries;
  for (const Finding& finding : findings) {
    JsonLine entry;
    entry.AddText("text", finding.text).AddText("mend", finding.mend);
    entries.push_back(entry);
  }
  return entries;
}

template <typename Value>
void AddKnown(JsonLine& object, std::string_view key, const std::optional<Value>& value) {
  if (value) {
    object.Add(key, *value);
  }
}

JsonLine ServiceOf(const SiteStatus& status) {
  const Machine& machine = status.machine;
  const ServiceProcess& process = machine.process;
  JsonLine object;
  if (!machine.service.mayBeHidden) {
    object.Add("runs", machine.service.process.has_value());
  }
  if (machine.service.process) {
    object.Add("pid", machine.service.process->pid).Add("started", process.startedAt);
    object.AddText("program", process.program).AddText("version", process.version);
    object.Add("processor_share", ProcessorShare(status));
    object.Add("processor_seconds", static_cast<double>(process.processorMillis) / 1000);
    object.Add("resident_bytes", process.residentBytes).Add("threads", process.threads);
    AddKnown(object, "descriptors", process.descriptors);
    AddKnown(object, "descriptor_limit", process.descriptorLimit);
  }
  object.AddText("configuration", machine.configuration.path);
  object.Add("configuration_exists", machine.configuration.exists);
  if (!machine.unit.name.empty()) {
    object.AddText("unit", machine.unit.name).AddText("unit_state", machine.unit.state);
    AddKnown(object, "restarts", machine.unit.restarts);
  }
  return object;
}

JsonLine LinkOf(const SiteStatus& status) {
  JsonLine object;
  object.Add("port", status.relayPort).Add("listening", status.isListening);
  const LinkActivity* const link = ServedLink(status);
  object.Add("connected", link != nullptr).Add("waiting_peers", WaitingPeers(status));
  if (link == nullptr) {
    return object;
  }
  const PeerView peer = PeerOf(status, *link);
  std::vector<std::string> names;
  for (const Process& process : peer.processes.found) {
    names.push_back(NameOf(process));
  }
  object.AddTexts("peers", names).AddText("user", peer.user).Add("peer_has_left", peer.hasLeft);
  AddKnown(object, "since", LinkedSince(status.machine));
  object.Add("unread_bytes", link->socket.unread).Add("unsent_bytes", link->socket.unsent);
  if (link->traffic) {
    object.Add("received_bytes", link->traffic->received).Add("sent_bytes", link->traffic->sent);
    object.Add("blocked_seconds", link->traffic->windowWasFull);
  }
  return object;
}

JsonLine ErrorOf(const ServiceLogLine& line) {
  JsonLine object;
  object.Add("time", line.time).AddText("message", line.message);
  return object;
}

JsonLine LogOf(const ServiceLog& log) {
  JsonLine object;
  object.AddText("from", log.from).AddText("problem", log.problem);
  if (const ServiceLogLine* const error = log.LastError(0)) {
    object.Add("last_error", ErrorOf(*error));
  }
  return object;
}

std::vector<JsonLine> PortsOf(const SiteStatus& status) {
  const double begin = LinkedSince(status.machine).value_or(0);
  std::vector<JsonLine> ports;
  for (const OpenPort& port : status.ports) {
    JsonLine object;
    object.AddText("name", port.name).AddText("node", port.node).Add("state", WordOf(port.state));
    AddKnown(object, "opened", port.openedAt);
    AddKnown(object, "away_since", port.awaySince);
    AddKnown(object, "received_bytes", port.receivedBytes);
    object.Add("writing", port.writer != nullptr);
    const ServiceLogLine* const error =
        port.node.empty() ? nullptr : status.machine.log.LastError(begin, port.node);
    if (error != nullptr) {
      object.Add("last_error", ErrorOf(*error));
    }
    ports.push_back(object);
  }
  return ports;
}

}  // namespace

std::string JsonOf(const SiteStatus& status) {
  JsonLine object;
  object.Add("event", "status").Add("time", status.time).Add("status", WordOf(status.health));
  object.Add("attention", FindingsOf(status.attention)).Add("notes", FindingsOf(status.notes));
  object.Add("service", ServiceOf(status)).Add("link", LinkOf(status));
  object.Add("log", LogOf(status.machine.log)).Add("ports", PortsOf(status));
  return object.Text();
}
