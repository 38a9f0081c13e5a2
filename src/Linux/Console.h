// SPDX-License-Identifier: MIT
// The process's standard streams, for short diagnostics. Each call writes its whole text at once,
// also when the stream is a pipe or a file, so that the lines of several threads never mix.
// Diagnostics carry no state, so they never hold up the service: a stream that takes nothing more
// (closed, full disk) loses the text, and so does one that nobody has read for a second.
// Any thread may call.
#pragma once

#include <string_view>

void WriteStandardOutput(std::string_view text);
void WriteStandardError(std::string_view text);

// The last text before the process ends. Texts of other threads no longer wait from then on, so
// that this one need not wait for them; it waits for a slow reader no longer than five seconds.
void WriteLastStandardError(std::string_view text);

// Opens /dev/null in the place of each standard stream that the process was started without: a
// serial line or socket opened later would otherwise get that number, and the diagnostics with it.
void EnsureStandardStreams();

// Lets the diagnostics go through pipes, sockets and terminals without blocking, whoever made them;
// the streams themselves are shared with other programs and stay as they are. To be called once,
// before any thread.
void UnblockStandardStreams();
