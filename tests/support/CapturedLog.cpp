// SPDX-License-Identifier: MIT
#include "support/CapturedLog.h"

#include <pthread.h>

#include <mutex>

#include "platform/KXLogger.h"

namespace {

std::mutex captureLock;
std::vector<LogLine> captured;

}  // namespace

extern "C" void writelog(const char* module, const char* file, const char* line, const char* tag,
                         const char* message, int level) {
  pthread_testcancel();  // a device's own library may write to a file
  const std::lock_guard guard(captureLock);
  captured.push_back({module, file, line, tag, message, level});
}

std::vector<LogLine> CapturedLog() {
  const std::lock_guard guard(captureLock);
  return captured;
}

void ForgetCapturedLog() {
  const std::lock_guard guard(captureLock);
  captured.clear();
}

std::vector<std::string> CapturedMessages() {
  std::vector<std::string> messages;
  for (const LogLine& line : CapturedLog()) {
    messages.push_back(line.message);
  }
  return messages;
}
