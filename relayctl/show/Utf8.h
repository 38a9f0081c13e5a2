// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string_view>

// How many bytes the character beyond ASCII has that `text`, which is not empty, begins with; 0: it
// begins with none.
size_t Utf8Size(std::string_view text);
