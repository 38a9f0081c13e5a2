// SPDX-License-Identifier: MIT
// libKXLogger, the machine's logging library, as the service calls it.
#pragma once

#if defined(__cplusplus)
extern "C" {
#endif

// Appends one line to the machine's log. All texts are zero-terminated and are not kept; `line` is
// the source line in decimal, `level` is 0 (fatal), 1 (error) or 3 (progress).
// May be called from any thread and from inside a signal handler.
__attribute__((visibility("default"))) void writelog(const char* module, const char* file,
                                                     const char* line, const char* tag,
                                                     const char* message, int level);

#if defined(__cplusplus)
}
#endif
