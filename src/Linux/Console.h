// SPDX-License-Identifier: MIT
// The process's standard streams, for short diagnostics. Each call writes its whole text at once,
// also when the stream is a pipe or a file, so that the lines of several threads never mix.
// A stream that takes nothing more (closed, full disk) loses the text: diagnostics carry no state.
// May block while a pipe is full; any thread may call.
#pragma once

#include <string_view>

void WriteStandardOutput(std::string_view text);
void WriteStandardError(std::string_view text);

// Opens /dev/null in the place of each standard stream that the process was started without: a
// serial line or socket opened later would otherwise get that number, and the diagnostics with it.
void EnsureStandardStreams();
