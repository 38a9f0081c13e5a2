// SPDX-License-Identifier: MIT
#pragma once

#include <deque>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "relay/Client.h"
#include "relay/Recording.h"

// A recording that is being written. What a link brings is held back until Commit, and dropped when
// the link ends before: an old recording is replaced by the first thing that is worth it. From
// Commit to the link's end each line is in the file at once.
// All throw relay::Error when the file cannot be written.
class RecordingFile {
 public:
  // "-" is standard output. A file that is there stays as it is until the first Commit.
  explicit RecordingFile(const std::string& recordingPath);

  void Packet(relay::Direction direction, std::string_view bytes);
  void Link(bool isUp);
  void Commit();

  uint64_t Packets() const { return packets; }  // in the file

 private:
  std::chrono::microseconds Now() const;
  std::string FenceRemark(const relay::RecordedEvent& event);
  void Put(const relay::RecordedEvent& event);
  void Begin();
  void Write(const std::string& line);
  [[noreturn]] void Fail() const;

  const std::string path;
  std::ofstream file;
  relay::Clock::time_point began;
  std::vector<relay::RecordedEvent> heldBack;
  bool hasBegun = false;
  bool isCommitted = false;
  uint64_t packets = 0;
  std::deque<bool> opens;  // those without an answer yet: whether it is a fence
};
