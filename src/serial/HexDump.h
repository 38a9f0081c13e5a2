// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Replaces `text` with the line that shows received bytes: "Received(3):41 42 0D \n". Keeps the
// text's memory, so that a text that is used again is not allocated again.
void FormatHexDump(const uint8_t* data, size_t length, std::string& text);
