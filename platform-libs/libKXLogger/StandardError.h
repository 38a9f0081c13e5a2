// SPDX-License-Identifier: MIT
#pragma once

#include "libKXLogger/LogLine.h"

namespace kxlogger {

// Writes the record to standard error as one line, with the journal's priority in front when
// JOURNAL_STREAM names the stream that standard error is at this moment. When it names standard
// output instead, the line goes there: a supervisor may keep the received bytes, which the service
// writes to standard error, out of the journal, and want the log in it.
// A line that cannot be written is lost: there is no other place for it.
// Safe in a signal handler.
void WriteStandardError(const LogRecord& record);

}  // namespace kxlogger
