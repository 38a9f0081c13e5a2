// SPDX-License-Identifier: MIT
// Times and sizes as a person reads them.
#pragma once

#include <cstdint>
#include <string>

// "14:03:07", with the day in front unless it is today. In the zone of the calling process.
std::string ClockText(double secondsSince1970);

// "12 s", "3 min 5 s", "5 h 2 min", "3 d 4 h".
std::string SpanText(double seconds);

// "12 s ago". Clocks are set back: what is still to come is said to be.
std::string AgoText(double seconds);

// "3.1 MiB"
std::string SizeText(uint64_t bytes);

// "1 byte", "2 bytes"
std::string BytesText(uint64_t count);
