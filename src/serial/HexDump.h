// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// The line that shows received bytes: "Received(3):41 42 0D \n". It stands in `space`, which grows
// to the longest one and is neither allocated nor cleared when it is used again.
std::string_view FormatHexDump(const uint8_t* data, size_t length, std::string& space);
