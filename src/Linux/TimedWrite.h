// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <string_view>

// A write to a descriptor that blocks, and whose description is shared with other programs, so that
// it cannot be told not to: returns within milliseconds all the same, with what `write` returns.
// -1 and EAGAIN: there is no room.
// Threads: any number, and signal handlers. A cancellation of the calling thread acts on it.
// It takes the first real-time signal that has no handler for itself, in the whole process.
ssize_t TimedWrite(int descriptor, std::string_view text);
