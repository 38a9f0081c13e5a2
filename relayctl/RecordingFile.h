// SPDX-License-Identifier: MIT
#pragma once

#include <deque>
#include <fstream>
#include <string>

#include "relay/Client.h"
#include "relay/Recording.h"

// A recording that is being written. Each line is in the file at once. Throws relay::Error when it
// cannot be written.
class RecordingFile {
 public:
  // "-" is standard output. A file that is there is replaced.
  explicit RecordingFile(const std::string& recordingPath);

  void Packet(relay::Direction direction, std::string_view bytes);
  void Link(bool isUp);

  uint64_t Events() const { return events; }

 private:
  std::chrono::microseconds Now() const;
  std::string FenceRemark(const relay::RecordedEvent& event);
  void Put(const std::string& line);

  const std::string path;
  std::ofstream file;
  const relay::Clock::time_point began = relay::Clock::now();
  uint64_t events = 0;
  std::deque<bool> opens;  // those without an answer yet: whether it is a fence
};
