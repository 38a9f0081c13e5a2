// SPDX-License-Identifier: MIT
#include "soak/Frame.h"

#include <cstring>

namespace {

constexpr char kMagic[] = {'S', 'K'};
constexpr size_t kLaneAt = 2;
constexpr size_t kEpochAt = 4;
constexpr size_t kSequenceAt = 8;
constexpr size_t kPayloadAt = 12;

void Put32(char* at, uint32_t value) {
  for (const unsigned shift : {24U, 16U, 8U, 0U}) {
    *at++ = static_cast<char>(static_cast<uint8_t>(value >> shift));
  }
}

uint32_t Get32(const char* at) {
  uint32_t value = 0;
  for (size_t i = 0; i < sizeof value; ++i) {
    value = value << 8 | static_cast<uint8_t>(at[i]);
  }
  return value;
}

// xorshift32; what matters is that neighbouring frames differ in every part.
uint32_t Next(uint32_t state) {
  state ^= state << 13;
  state ^= state >> 17;
  return state ^ state << 5;
}

}  // namespace

Frame MakeFrame(uint8_t lane, const FrameId& id) {
  Frame frame{};
  std::memcpy(frame.data(), kMagic, sizeof kMagic);
  frame[kLaneAt] = static_cast<char>(lane);
  frame[kLaneAt + 1] = static_cast<char>(~lane);
  Put32(&frame[kEpochAt], id.epoch);
  Put32(&frame[kSequenceAt], id.sequence);
  uint32_t state = (id.sequence * 2654435761U) ^ (id.epoch * 40503U) ^ (lane + 1U) * 16777619U;
  for (size_t at = kPayloadAt; at < kFrameBytes; at += sizeof state) {
    state = Next(state | 1U) + id.sequence;
    Put32(&frame[at], state);
  }
  return frame;
}

std::optional<FrameId> ReadFrame(uint8_t lane, const char* bytes) {
  if (std::memcmp(bytes, kMagic, sizeof kMagic) != 0) {
    return std::nullopt;
  }
  const FrameId id = {Get32(bytes + kEpochAt), Get32(bytes + kSequenceAt)};
  if (std::memcmp(bytes, MakeFrame(lane, id).data(), kFrameBytes) != 0) {
    return std::nullopt;
  }
  return id;
}

std::string TextOf(const FrameId& id) {
  return std::to_string(id.epoch) + "/" + std::to_string(id.sequence);
}
