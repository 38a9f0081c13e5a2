// SPDX-License-Identifier: MIT
#include "link/RecordingFile.h"

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "relay/Text.h"
#include "show/Output.h"

RecordingFile::RecordingFile(const std::string& recordingPath)
    : path(recordingPath), began(relay::Clock::now()) {
  if (path != "-") {
    file.open(path, std::ios::binary | std::ios::app);
    if (!file) {
      Fail();
    }
  }
}

std::chrono::microseconds RecordingFile::Now() const {
  return std::chrono::duration_cast<std::chrono::microseconds>(relay::Clock::now() - began);
}

void RecordingFile::Packet(relay::Direction direction, std::string_view bytes) {
  Put(relay::RecordPacket(Now(), direction, bytes));
}

void RecordingFile::Link(bool isUp) {
  opens.clear();
  relay::RecordedEvent event;
  event.time = Now();
  event.kind = isUp ? relay::RecordedEvent::Kind::kLinkUp : relay::RecordedEvent::Kind::kLinkDown;
  Put(event);
  if (!isUp) {
    isCommitted = false;
    heldBack.clear();
  }
}

void RecordingFile::Commit() {
  if (!std::exchange(hasBegun, true)) {
    Begin();
  }
  isCommitted = true;
  for (const relay::RecordedEvent& event : std::exchange(heldBack, {})) {
    Put(event);
  }
}

void RecordingFile::Put(const relay::RecordedEvent& event) {
  if (!isCommitted) {
    heldBack.push_back(event);
    return;
  }
  packets += event.IsPacket() ? 1U : 0U;
  Write(relay::ToLine(event) + FenceRemark(event));
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

void RecordingFile::Begin() {
  if (path != "-" && std::filesystem::is_regular_file(path)) {
    std::filesystem::resize_file(path, 0);
  }
  Write(relay::RecordingHeader(std::chrono::system_clock::now()));
}

void RecordingFile::Write(const std::string& line) {
  if (path == "-") {
    PrintLine(line);
  } else if (!(file << line << std::endl)) {
    Fail();
  }
}

void RecordingFile::Fail() const {
  throw relay::Error(
      relay::ErrorKind::kSystem,
      "cannot write " + relay::Escape(path) + ": " + std::generic_category().message(errno), errno);
}
