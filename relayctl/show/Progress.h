// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

// How far a transfer is: "12345 of 1048576 bytes, 1 %, 11.2 kB/s, 1:31 left". The rate is the mean
// since `elapsed` began. `total` 0: it is not known how much there is, and nothing is told of it.
// Where all that needs more than `columns`, the rate is left out, and then the bytes.
std::string ProgressText(uint64_t done, uint64_t total, std::chrono::milliseconds elapsed,
                         size_t columns = SIZE_MAX);
