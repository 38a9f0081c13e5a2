// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "log/LogRecord.h"

// The record as a line, with the sentences that explain it below when `explained`. Whatever the
// record holds, a terminal shows it and does nothing else.
std::string ShowRecord(const LogRecord& record, bool explained, bool isColored);

// The same as one JSON object. What is not known is not in it.
std::string ShowRecordAsJson(const LogRecord& record);
