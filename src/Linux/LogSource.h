// SPDX-License-Identifier: MIT
#pragma once

#include <string>

enum class LogLevel : int { kFatal = 0, kError = 1, kProgress = 3 };

// Hands one line to the logging library. Allocates nothing and takes no lock, so that a signal
// handler may call it.
void WriteLog(const char* module, const char* file, int line, const char* tag, LogLevel level,
              const char* message);

// One class's voice in the log: the module name, source file name and tag that stand in each of
// its lines. Copies share nothing. Logging a line does not change the source: any thread may.
class CLogSource {
 public:
  // `file` must live as long as the source; it is a literal everywhere.
  CLogSource(std::string module, const char* file, std::string tag);

  // `line` is the call site's: leave it out.
  void Log(LogLevel level, const char* message, int line = __builtin_LINE()) const;

 private:
  std::string module;
  const char* file;
  std::string tag;
};
