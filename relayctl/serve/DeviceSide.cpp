// SPDX-License-Identifier: MIT
#include "serve/DeviceSide.h"

#include <algorithm>
#include <sstream>

#include "relay/Error.h"
#include "relay/Recording.h"
#include "serve/Provocation.h"

namespace {

using relay::Direction;
using relay::RecordedEvent;
using StepKind = RecordedStep::Kind;

constexpr std::string_view kInstruction = ";; ";

// What only a player of both sides follows.
constexpr std::string_view kNotForDevices[] = {"configure", "sends",  "bytes",  "log", "out",
                                               "err",       "closed", "signal", "ends"};

class DeviceSideReader {
 public:
  explicit DeviceSideReader(const std::string& devicePort) : port(devicePort) {}

  void TakeLine(const std::string& line) {
    if (line.starts_with(kInstruction)) {
      TakeInstruction(line.substr(kInstruction.size()));
    } else if (const auto event = relay::FromLine(line, now)) {
      now = event->time;
      TakeEvent(*event);
    }
  }

  std::vector<RecordedStep> Steps() const { return steps; }

 private:
  void Add(StepKind kind, const std::string& text = "") {
    const bool isTimed = kind == StepKind::kGives || isAway;
    steps.push_back({kind, text, isTimed ? now - before : std::chrono::microseconds(0)});
    before = now;
  }

  // A port that is away answers by itself.
  void TakeStatus(uint16_t status) {
    if (!isAway && status >= kStatusNoPort && status <= kStatusCloseFailed) {
      Add(StepKind::kProvokes, "status " + port + " " + std::to_string(status));
    }
  }

  void Close() {
    if (isOpen) {
      Add(StepKind::kClosed);
      isOpen = false;
    }
  }

  void TakeEvent(const RecordedEvent& event) {
    if (!event.IsPacket()) {
      Close();
      return;
    }
    const relay::Packet packet = relay::ParsePacket(event.ToPacket(), event.direction).packet;
    isLast = packet.port.name == port;
    if (!isLast) {
      return;
    }
    if (packet.command == kCommandData) {
      if (isOpen && !isAway && !packet.Data().empty()) {
        Add(event.direction == Direction::kToService ? StepKind::kTakes : StepKind::kGives,
            packet.Data());
      }
    } else if (event.direction == Direction::kFromService) {
      TakeReply(packet.command, packet.number.value_or(kStatusDone));
    }
  }

  void TakeReply(uint8_t command, uint16_t status) {
    if (command == kCommandClose) {
      status == kStatusDone ? Close() : status == kStatusCloseFailed ? TakeStatus(status) : void();
    } else if (status == kStatusDone) {
      Add(StepKind::kOpened);
      isOpen = true;
    } else if (!isOpen) {
      TakeStatus(status);
    }
  }

  // The same with the port's name behind the word.
  std::string Named(const std::string& text) const {
    const size_t end = std::min(text.find(' '), text.size());
    return text.substr(0, end) + " " + port + text.substr(end);
  }

  void TakeInstruction(const std::string& text) {
    std::istringstream words(text);
    std::string word;
    words >> word;
    if (std::find(std::begin(kNotForDevices), std::end(kNotForDevices), word) !=
        std::end(kNotForDevices)) {
      return;
    }
    const Provocation what = Provocation::FromText(text);
    if (what.port == port || (what.port.empty() && isLast)) {
      Add(StepKind::kProvokes, what.port.empty() ? Named(text) : text);
      isAway = what.kind == Provocation::Kind::kUnplug ||
               (isAway && what.kind != Provocation::Kind::kPlug);
    }
  }

  const std::string port;
  std::vector<RecordedStep> steps;
  std::chrono::microseconds now{0};
  std::chrono::microseconds before{0};  // of the step before
  bool isOpen = false;
  bool isAway = false;
  bool isLast = false;  // the event before is this port's
};

}  // namespace

std::vector<RecordedStep> ReadDeviceSide(const std::string& text, const std::string& name,
                                         const std::string& port) {
  DeviceSideReader reader(port);
  size_t number = 0;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    ++number;
    try {
      reader.TakeLine(line);
    } catch (const relay::Error& error) {
      throw relay::Error(relay::ErrorKind::kUsage,
                         name + ":" + std::to_string(number) + ": " + error.what());
    }
  }
  return reader.Steps();
}
