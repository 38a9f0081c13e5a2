// SPDX-License-Identifier: MIT
#include "soak/CheckedStream.h"

#include <algorithm>
#include <cstring>

#include "e2e/support/Wire.h"

CheckedStream::CheckedStream(std::string streamName, uint8_t streamLane)
    : name(std::move(streamName)), lane(streamLane) {}

std::string CheckedStream::Frames(size_t count) {
  std::string bytes;
  if (IsDrained()) {
    lastArrival = Clock::now();  // nothing was under way
  }
  for (; count > 0; --count) {
    const Frame frame = MakeFrame(lane, next);
    bytes.append(frame.data(), frame.size());
    ++next.sequence;
  }
  sentOfEpoch[next.epoch] = next.sequence;
  totals.sentBytes += bytes.size();
  return bytes;
}

void CheckedStream::BorderBegins(size_t repeatable) {
  Looks();
  atBorder = true;
  repeatableFrames = std::max(repeatableFrames, repeatable);
}

void CheckedStream::BorderEnds() {
  next = {next.epoch + 1, 0};
  atBorder = false;
  lastArrival = Clock::now();
}

void CheckedStream::Arrives(std::string_view bytes) {
  if (bytes.empty()) {
    return;
  }
  Looks();
  lastArrival = Clock::now();
  rest += bytes;
  while (isInStep ? CheckInStep() : FindFrame()) {
  }
}

void CheckedStream::Looks() {
  if (!atBorder && !IsDrained()) {
    totals.longestGap = std::max(totals.longestGap, Clock::now() - lastArrival);
  }
}

// False when more bytes are needed.
bool CheckedStream::CheckInStep() {
  const Frame frame = MakeFrame(lane, expected);
  const size_t count = std::min(rest.size(), frame.size());
  if (std::memcmp(rest.data(), frame.data(), count) != 0) {
    isInStep = false;
    if (IsBorderPast()) {
      Defect("other bytes than frame " + TextOf(expected) + ": " + HexOf(rest.substr(0, count)));
    }
    return true;
  }
  if (count < frame.size()) {
    return false;
  }
  rest.erase(0, count);
  totals.arrivedBytes += count;
  ++expected.sequence;
  return !rest.empty();
}

// False when more bytes are needed.
bool CheckedStream::FindFrame() {
  for (size_t at = 0; at + kFrameBytes <= rest.size(); ++at) {
    const std::optional<FrameId> found = ReadFrame(lane, &rest[at]);
    if (found) {
      totals.borderCutBytes += at;
      rest.erase(0, at);
      StepsIn(*found);
      return true;
    }
  }
  if (rest.size() >= kFrameBytes) {
    const size_t useless = rest.size() - (kFrameBytes - 1);
    totals.borderCutBytes += useless;
    rest.erase(0, useless);
  }
  return false;
}

void CheckedStream::StepsIn(const FrameId& found) {
  if (found >= next) {
    Defect("frame " + TextOf(found) + " that was never sent");
  } else if (found < expected) {
    if (MayBeRepeated(found)) {
      totals.borderRepeatedFrames += expected.sequence - found.sequence;
      repeatableFrames = 0;
    } else {
      Defect("frame " + TextOf(found) + " again or late, instead of " + TextOf(expected));
    }
  } else {
    CountLost(found);
  }
  expected = found;
  isInStep = true;
}

bool CheckedStream::MayBeRepeated(const FrameId& found) const {
  return found.epoch == expected.epoch && expected.sequence - found.sequence <= repeatableFrames;
}

void CheckedStream::CountLost(const FrameId& found) {
  const bool isOfThisEpoch = !atBorder && found.epoch == next.epoch;
  if (isOfThisEpoch && found.sequence != (expected.epoch == found.epoch ? expected.sequence : 0)) {
    Defect("frame " + TextOf(found) + " instead of " + TextOf(expected) + ": frames are lost");
  }
  uint64_t lost = found.sequence;
  for (const auto& [epoch, sent] : sentOfEpoch) {
    lost += epoch >= expected.epoch && epoch < found.epoch ? sent : 0;
  }
  totals.borderLostFrames += lost - expected.sequence;
  if (found.epoch > expected.epoch) {
    sentOfEpoch.erase(sentOfEpoch.begin(), sentOfEpoch.lower_bound(found.epoch));
    repeatableFrames = 0;
  }
}

void CheckedStream::Defect(const std::string& text) { defects.push_back(name + ": " + text); }
