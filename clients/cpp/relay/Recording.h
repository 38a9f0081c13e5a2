// SPDX-License-Identifier: MIT
// Recordings: what went over the link, one line per event, to be read and written by hand as well.
// docs/recording.md describes the format.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "relay/Packet.h"

namespace relay {

struct RecordedEvent {
  enum class Kind {
    kOpen,      // the command, or the reply to it
    kClose,     // the same
    kData,      // one block, of type 1 to the service and of type 2 from it
    kPacket,    // any other packet, well formed or not: `bytes` is all of it
    kLinkUp,    // the relay is connected
    kLinkDown,  // the link has ended
  };

  std::chrono::microseconds time{0};  // since the recording began
  Kind kind = Kind::kData;
  Direction direction = Direction::kToService;  // without a meaning for the link's events
  Port port;                                    // open, close, data
  std::optional<uint16_t> number;               // to the service: a parameter; from it: the status
  std::string bytes;

  bool IsPacket() const { return kind != Kind::kLinkUp && kind != Kind::kLinkDown; }

  // The packet that the event is; only for packets.
  std::string ToPacket() const;
};

RecordedEvent RecordPacket(std::chrono::microseconds time, Direction direction,
                           std::string_view packet);

// One line without its end, with a comment that shows data as text.
std::string ToLine(const RecordedEvent& event);

// Nothing for an empty line and for a comment. `previous` is the time of the line before, from
// which "+0.5" counts. Throws kUsage for a line that is none of a recording.
std::optional<RecordedEvent> FromLine(std::string_view line, std::chrono::microseconds previous);

// The first line of a file, with the time of day at which the recording began.
std::string RecordingHeader(std::chrono::system_clock::time_point began);

// All events of `text`. Throws kUsage: `NAME:12: what is wrong`.
std::vector<RecordedEvent> ReadRecording(std::string_view text, const std::string& name);

// The same from a file; kSystem when it cannot be read.
std::vector<RecordedEvent> ReadRecordingFile(const std::string& path);

}  // namespace relay
