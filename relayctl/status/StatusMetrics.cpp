// SPDX-License-Identifier: MIT
#include <array>
#include <cstdio>
#include <optional>

#include "status/StatusText.h"

namespace {

constexpr const char* kPrefix = "serial_port_handler_";

std::string NumberText(double number) {
  std::array<char, 64> text{};
  (void)std::snprintf(text.data(), text.size(), "%.15g", number);
  return text.data();
}

// The text format's escapes of a label's value.
std::string LabelText(const std::string& value) {
  std::string text;
  for (const char letter : value) {
    text += letter == '\\' || letter == '"' ? std::string{'\\', letter}
            : letter == '\n'                ? "\\n"
                                            : std::string(1, letter);
  }
  return text;
}

class Metrics {
 public:
  // What is not known is left out.
  void Gauge(const std::string& name, const std::string& help, std::optional<double> value) {
    Single(name, "gauge", help, value);
  }
  void Counter(const std::string& name, const std::string& help, std::optional<double> value) {
    Single(name, "counter", help, value);
  }

  // A value for each port of which there is one.
  template <typename Value>
  void OfPorts(const std::string& name, const std::string& type, const std::string& help,
               const std::vector<OpenPort>& ports, Value value) {
    std::string lines;
    for (const OpenPort& port : ports) {
      const std::optional<double> number = value(port);
      if (number) {
        lines += kPrefix + name + "{port=\"" + LabelText(port.name) + "\"} " + NumberText(*number) +
                 "\n";
      }
    }
    text += lines.empty() ? "" : Head(name, type, help) + lines;
  }

  std::string text;

 private:
  static std::string Head(const std::string& name, const std::string& type,
                          const std::string& help) {
    return std::string("# HELP ") + kPrefix + name + " " + help + "\n# TYPE " + kPrefix + name +
           " " + type + "\n";
  }

  void Single(const std::string& name, const std::string& type, const std::string& help,
              std::optional<double> value) {
    if (value) {
      text += Head(name, type, help) + kPrefix + name + " " + NumberText(*value) + "\n";
    }
  }
};

template <typename Number>
std::optional<double> Known(const std::optional<Number>& number) {
  return number ? std::optional(static_cast<double>(*number)) : std::nullopt;
}

void AddHealth(const SiteStatus& status, Metrics& metrics) {
  metrics.Gauge("up", "Whether the service runs and listens.", status.health != Health::kDown);
  metrics.Gauge("status", "0 healthy, 1 needs attention, 2 down.",
                static_cast<double>(status.health));
  metrics.Gauge("findings", "Things that need attention.",
                static_cast<double>(status.attention.size()));
  const ServiceLogLine* const error = status.machine.log.LastError(0);
  metrics.Gauge("last_error_timestamp_seconds", "When the last error was logged.",
                error != nullptr ? std::optional(error->time) : std::nullopt);
}

void AddProcess(const SiteStatus& status, Metrics& metrics) {
  const ServiceProcess& process = status.machine.process;
  metrics.Counter("restarts_total", "Starts by systemd itself.",
                  Known(status.machine.unit.restarts));
  if (!status.machine.service.process) {
    return;
  }
  metrics.Gauge("start_time_seconds", "When the process was started.", process.startedAt);
  metrics.Counter("cpu_seconds_total", "Processor time taken.",
                  static_cast<double>(process.processorMillis) / 1000);
  metrics.Gauge("resident_memory_bytes", "Resident memory.",
                static_cast<double>(process.residentBytes));
  metrics.Gauge("threads", "Threads.", static_cast<double>(process.threads));
  metrics.Gauge("open_fds", "Open descriptors.", Known(process.descriptors));
  metrics.Gauge("max_fds", "Limit of open descriptors.", Known(process.descriptorLimit));
}

void AddLink(const SiteStatus& status, Metrics& metrics) {
  const LinkActivity* const link = ServedLink(status);
  metrics.Gauge("peer_connected", "Whether a relay service is connected.", link != nullptr);
  metrics.Gauge("peers_waiting", "Peers that wait behind it.",
                static_cast<double>(WaitingPeers(status)));
  if (link == nullptr) {
    return;
  }
  metrics.Gauge("link_start_time_seconds", "When the relay service connected.",
                LinkedSince(status.machine));
  metrics.Gauge("link_unread_bytes", "Bytes that wait for the service.",
                static_cast<double>(link->socket.unread));
  metrics.Gauge("link_unsent_bytes", "Bytes that wait for the relay service.",
                static_cast<double>(link->socket.unsent));
  if (link->traffic) {
    metrics.Counter("link_receive_bytes_total", "Bytes from the relay service, of this link.",
                    static_cast<double>(link->traffic->received));
    metrics.Counter("link_transmit_bytes_total", "Bytes to the relay service, of this link.",
                    static_cast<double>(link->traffic->sent));
    metrics.Counter("link_blocked_seconds_total", "Time that sending waited for room there.",
                    link->traffic->windowWasFull);
  }
}

void AddPorts(const SiteStatus& status, Metrics& metrics) {
  const auto is = [](PortState state) {
    return [state](const OpenPort& port) {
      return port.state == PortState::kUnknown || port.state == PortState::kMayBeAway
                 ? std::nullopt
                 : std::optional(port.state == state ? 1.0 : 0.0);
    };
  };
  metrics.OfPorts("port_open", "gauge", "Whether the port is open and its device is there.",
                  status.ports, is(PortState::kOpen));
  metrics.OfPorts("port_away", "gauge", "Whether the port is open and its device is gone.",
                  status.ports, is(PortState::kAway));
  metrics.OfPorts("port_receive_bytes_total", "counter", "Bytes received since it was opened.",
                  status.ports, [](const OpenPort& port) { return Known(port.receivedBytes); });
}

}  // namespace

std::string MetricsOf(const SiteStatus& status) {
  Metrics metrics;
  AddHealth(status, metrics);
  AddProcess(status, metrics);
  AddLink(status, metrics);
  AddPorts(status, metrics);
  return metrics.text;
}
