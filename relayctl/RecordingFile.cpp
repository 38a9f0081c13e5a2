// SPDX-License-Identifier: MIT
#include "RecordingFile.h"

#include <cerrno>
#include <system_error>

#include "Output.h"
#include "relay/Text.h"

RecordingFile::RecordingFile(const std::string& recordingPath) : path(recordingPath) {
  if (path != "-") {
    file.open(path, std::ios::binary | std::ios::trunc);
  }
  Put(relay::RecordingHeader(std::chrono::system_clock::now()));
}

std::chrono::microseconds RecordingFile::Now() const {
  return std::chrono::duration_cast<std::chrono::microseconds>(relay::Clock::now() - began);
}

void RecordingFile::Packet(relay::Direction direction, std::string_view bytes) {
  ++events;
  const relay::RecordedEvent event = relay::RecordPacket(Now(), direction, bytes);
  Put(relay::ToLine(event) + FenceRemark(event));
}

// Answers come in the order of their commands, and only malformed ones have none.
std::string RecordingFile::FenceRemark(const relay::RecordedEvent& event) {
  if (event.kind != relay::RecordedEvent::Kind::kOpen) {
    return "";
  }
  if (event.direction == relay::Direction::kToService) {
    opens.push_back(event.number == relay::kFenceParameter);
    return opens.back() ? "  ; fence" : "";
  }
  const bool isFence = !opens.empty() && opens.front();
  if (!opens.empty()) {
    opens.pop_front();
  }
  return isFence ? "  ; of the fence" : "";
}

void RecordingFile::Link(bool isUp) {
  opens.clear();
  relay::RecordedEvent event;
  event.time = Now();
  event.kind = isUp ? relay::RecordedEvent::Kind::kLinkUp : relay::RecordedEvent::Kind::kLinkDown;
  Put(relay::ToLine(event));
}

void RecordingFile::Put(const std::string& line) {
  if (path == "-") {
    PrintLine(line);
  } else if (!(file << line << std::endl)) {
    throw relay::Error(
        relay::ErrorKind::kSystem,
        "cannot write " + relay::Escape(path) + ": " + std::generic_category().message(errno),
        errno);
  }
}
