// SPDX-License-Identifier: MIT
// Packets as text: hex bytes, spaced apart by field as the reader likes, with names in quotes:
// 0014 01 02 000E "#PhysicalPort0" in single quotes is an open command.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The bytes that `text` stands for.
std::vector<uint8_t> WireBytes(const std::string& text);

// `text` as upper-case hex without blanks and quotes, as the relay shows packets.
std::string Wire(const std::string& text);

// `bytes` as upper-case hex without blanks.
std::string HexOf(const std::string& bytes);
