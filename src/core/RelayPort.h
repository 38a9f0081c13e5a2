// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

constexpr uint32_t kDefaultRelayPort = 60004;

// The TCP port that the configuration's text stands for: its leading number; the default when that
// is missing or a reserved one. A number beyond 31 bits counts as the largest of 31 bits.
uint32_t RelayPortOf(const std::string& text);
