// SPDX-License-Identifier: MIT
// The udev database that a search reads, given by a fuzzer's input instead of by udevadm. system
// and fopen are replaced at link time.
#pragma once

#include <cstddef>
#include <cstdint>

void SetDatabase(const uint8_t* data, size_t size);
