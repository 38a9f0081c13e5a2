// SPDX-License-Identifier: MIT
#include "Linux/LinuxThread.h"

#include <execinfo.h>

#include <atomic>
#include <memory>
#include <utility>

#include "Linux/CancellationShield.h"
#include "Linux/LogSource.h"
#include "Linux/SignalMask.h"
#include "Linux/Sleep.h"

namespace {

constexpr int kJoinAttempts = 20;
constexpr unsigned kJoinPauseMilliseconds = 100;
constexpr unsigned kRunningPauseMilliseconds = 5;

constexpr const char* kLogModule = "LinuxThread";
constexpr const char* kLogFile = "Linux/LinuxThread.cpp";
constexpr const char* kLogTag = "4";

void LogError(const char* message, int line = __builtin_LINE()) {
  WriteLog(kLogModule, kLogFile, line, kLogTag, LogLevel::kError, message);
}

// Routines whose thread is being made, runs or is being unwound. Written by starting and ending
// threads, read by WaitUntilNoneRuns.
std::atomic<int> runningRoutines{0};

struct RoutineCall {
  ThreadRoutine routine;
  void* argument;
};

// Counts a routine out when it returns and when its thread is cancelled.
class CRoutineEnd {
 public:
  CRoutineEnd() = default;
  ~CRoutineEnd() { --runningRoutines; }
  CRoutineEnd(const CRoutineEnd&) = delete;
  CRoutineEnd& operator=(const CRoutineEnd&) = delete;
};

void* RunRoutine(void* call) {
  const CRoutineEnd end;
  const std::unique_ptr<RoutineCall> owned(static_cast<RoutineCall*>(call));
  return owned->routine(owned->argument);
}

// The C library loads its unwinder at the first pthread_cancel, with malloc and locks. A stop can
// cancel from inside a signal handler, so the unwinder is loaded when the first thread starts.
void LoadUnwinder() {
  static const int frames = [] {
    void* frame = nullptr;
    return backtrace(&frame, 1);
  }();
  (void)frames;
}

}  // namespace

CLinuxThread::CLinuxThread() = default;

CLinuxThread::~CLinuxThread() {
  const CCancellationShield shield;
  (void)CLinuxThread::Stop();
}

int CLinuxThread::Start(ThreadRoutine routine, void* argument) {
  LoadUnwinder();
  auto call = std::make_unique<RoutineCall>(RoutineCall{routine, argument});
  ++runningRoutines;
  // The new thread inherits it; stops are main's, see SignalMask.h.
  const CSignalMask blocked(CSignalMask::AllSignals());
  if (pthread_create(&handle, nullptr, RunRoutine, call.get()) != 0) {
    --runningRoutines;
    handle = 0;  // the C library leaves a stale one behind
    return -1;
  }
  (void)call.release();  // the new thread's now
  return 0;
}

bool CLinuxThread::TryJoin() { return pthread_tryjoin_np(handle, nullptr) == 0; }

// There is no blocking join: a routine that never returns must not hold up its owner.
int CLinuxThread::Stop() {
  if (handle == 0) {
    return 0;
  }
  for (int attempt = 1; attempt <= kJoinAttempts; ++attempt) {
    if (TryJoin()) {
      handle = 0;
      return 0;
    }
    (void)SleepMilliseconds(kJoinPauseMilliseconds);
  }
  GiveUp();
  return 0;
}

void CLinuxThread::GiveUp() {
  LogError("error: thread can not join\n");
  if (pthread_cancel(handle) != 0) {
    LogError("error: thread can not cancel\n");
  }
  if (pthread_detach(handle) != 0) {
    LogError("error: thread can not detach\n");
  }
  handle = 0;
}

bool CLinuxThread::WaitUntilNoneRuns(unsigned milliseconds) {
  for (unsigned waited = 0; runningRoutines != 0; waited += kRunningPauseMilliseconds) {
    if (waited >= milliseconds) {
      return false;
    }
    (void)SleepMilliseconds(kRunningPauseMilliseconds);
  }
  return true;
}
