// SPDX-License-Identifier: MIT
// Whole transfers over descriptors that do not block. The deadline is each piece's: a slow far end
// is no failure.
#pragma once

#include <string>

// False when the deadline passes.
bool WritesAll(int descriptor, const std::string& bytes);

// The next `count` bytes; fewer when the deadline passes.
std::string ReadsAll(int descriptor, size_t count);
