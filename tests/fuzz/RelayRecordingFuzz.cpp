// SPDX-License-Identifier: MIT
// A text is a recording or has a mistake that is told; each event of a recording is had back from
// the line that is written for it.
#include <string>

#include "Check.h"
#include "relay/Error.h"
#include "relay/Recording.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<relay::RecordedEvent> events;
  try {
    events = relay::ReadRecording(std::string(data, data + size), "text");
  } catch (const relay::Error& error) {
    Check(error.Kind() == relay::ErrorKind::kUsage, "a mistake of the text");
    return 0;
  }
  for (const relay::RecordedEvent& event : events) {
    const auto again = relay::FromLine(relay::ToLine(event), event.time);
    Check(again.has_value(), "a line of a recording");
    Check(again->time == event.time && again->kind == event.kind, "same time and kind");
    if (event.IsPacket()) {
      Check(again->direction == event.direction, "same direction");
      Check(again->ToPacket() == event.ToPacket(), "same packet");
    }
  }
  return 0;
}
