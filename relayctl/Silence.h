// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include "ProcessTable.h"

// Why the service on this port does not answer the calling process, as far as the kernel shows it:
// that another process has the link, or else only that the service does not answer.
std::string WhyNoAnswer(const ProcessTable& processes, uint16_t port);
