// SPDX-License-Identifier: MIT
#include "machine/LibraryLog.h"

#include <utility>

#include "platform/KXLogger.h"

namespace {

constexpr int kErrorLevel = 1;  // and 0, fatal

std::string lastError;

}  // namespace

// A function of the program comes before that of the same name in a shared library, also for the
// calls of other libraries.
void writelog(const char* /*module*/, const char* /*file*/, const char* /*line*/,
              const char* /*tag*/, const char* message, int level) {
  if (level <= kErrorLevel) {
    lastError = message;
  }
}

std::string TakeLibraryError() { return std::exchange(lastError, {}); }
