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
  Put(relay::ToLine(relay::RecordPacket(Now(), direction, bytes)));
}

void RecordingFile::Link(bool isUp) {
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
