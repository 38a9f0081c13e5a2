// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "machine/ProcessTable.h"

// Why the service on this port does not answer the calling process, as far as the kernel shows it:
// that another process has the link, or else only that the service does not answer.
std::string WhyNoAnswer(const ProcessTable& processes, uint16_t relayPort);

// After so long without an answer a person is told: one who waits without a limit, of whatever
// command. A service that is free answers within much less, unless a device holds up its open.
constexpr std::chrono::seconds kSilence{1};

// What is told then.
std::string SilenceText(uint16_t relayPort);
