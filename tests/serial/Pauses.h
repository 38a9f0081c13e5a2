// SPDX-License-Identifier: MIT
// The pauses of the code under test: its usleep, replaced at link time.
#pragma once

#include <functional>

// Runs before each pause, on the thread that makes it. Set and cleared while no thread runs that
// may pause.
extern std::function<void(unsigned microseconds)> onPause;
