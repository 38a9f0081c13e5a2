// SPDX-License-Identifier: MIT
#pragma once

// Gives a session leader that has no controlling terminal one that never hangs up: a
// pseudo-terminal whose both ends this process keeps until it ends. Otherwise the first serial
// line that such a process (started by systemd, setsid or as a container's first) opens would
// become its controlling terminal, and unplugging that line would send it SIGHUP: a request to
// stop. Does nothing for any other process.
//
// When a session leader ends, the kernel hangs up the foreground process group of its terminal:
// that is made an empty one, as the rest of the process's own group (a start script's helpers) has
// nothing to do with it. It takes a child process for a moment: to be called before any thread.
//
// Returns 0, or the errno of the call that failed; the process then goes on without.
int TakeOwnControllingTerminal();
