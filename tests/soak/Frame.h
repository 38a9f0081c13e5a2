// SPDX-License-Identifier: MIT
// What the soak sends over each lane. Every byte of a frame depends on the frame's number, so that
// a byte in the wrong place never looks right.
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

constexpr size_t kFrameBytes = 64;

// Frames are counted from 0 within an epoch; an epoch ends where a fault may have cost bytes.
struct FrameId {
  uint32_t epoch = 0;
  uint32_t sequence = 0;
  auto operator<=>(const FrameId&) const = default;
};

using Frame = std::array<char, kFrameBytes>;

// `lane` tells ports and directions apart.
Frame MakeFrame(uint8_t lane, const FrameId& id);

// The number of the frame at `bytes`, of which there are kFrameBytes; none unless all of them are
// as MakeFrame makes them.
std::optional<FrameId> ReadFrame(uint8_t lane, const char* bytes);

std::string TextOf(const FrameId& id);
