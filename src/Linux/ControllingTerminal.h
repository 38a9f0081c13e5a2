// SPDX-License-Identifier: MIT
#pragma once

// Gives a session leader that has no controlling terminal one that never hangs up: a
// pseudo-terminal whose both ends this process keeps until it ends. Otherwise the first serial
// line that such a process (started by systemd, setsid or as a container's first) opens would
// become its controlling terminal, and unplugging that line would send it SIGHUP: a request to
// stop. Does nothing for any other process.
//
// Returns 0, or the errno of the call that failed; the process then goes on without.
int TakeOwnControllingTerminal();
