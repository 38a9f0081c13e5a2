// SPDX-License-Identifier: MIT
// The tools that the service runs, one at a time.
#pragma once

#include <string>

// Runs `command` through the shell and waits until it has ended: the result of system. The command
// starts with no signal blocked, so that an operator can end it by any. Cancellation is put off:
// the C library would end the shell alone, and leave behind what the shell has started.
int RunCommand(const std::string& command);

// Ends what a RunCommand on another thread is running at the moment, with all that it has started.
// Without a /proc of its own PID namespace it finds nothing to end. Not for signal handlers: it
// allocates.
void EndCommand();
