// SPDX-License-Identifier: MIT
#include "Linux/LogSource.h"

#include <charconv>
#include <limits>
#include <utility>

#include "Linux/CancellationShield.h"
#include "platform/KXLogger.h"

void WriteLog(const char* module, const char* file, int line, const char* tag, LogLevel level,
              const char* message) {
  // A sign, the digits and the terminating zero. snprintf is not for signal handlers.
  char lineText[std::numeric_limits<int>::digits10 + 3] = {};
  (void)std::to_chars(lineText, lineText + sizeof lineText - 1, line);
  // The library may be the device's own: cancelled inside it, a thread could keep its locks.
  const CCancellationShield shield;
  writelog(module, file, lineText, tag, message, static_cast<int>(level));
}

CLogSource::CLogSource(std::string moduleName, const char* fileName, std::string logTag)
    : module(std::move(moduleName)), file(fileName), tag(std::move(logTag)) {}

void CLogSource::Log(LogLevel level, const char* message, int line) const {
  WriteLog(module.c_str(), file, line, tag.c_str(), level, message);
}
