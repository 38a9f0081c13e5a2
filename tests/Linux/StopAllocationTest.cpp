// SPDX-License-Identifier: MIT
// The C library's memory functions are replaced: nobody may ask for memory inside the handler of a
// stop signal, and the C library itself does so where a thread is cancelled for the first time.
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <csignal>
#include <memory>

#include "Linux/LinuxThread.h"
#include "Linux/Routine.h"
#include "platform/KXLogger.h"

namespace {

thread_local bool isWatched = false;
std::atomic<int> requests{0};

void Count() { requests += isWatched ? 1 : 0; }

}  // namespace

extern "C" {

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
void __libc_free(void* memory);

void* malloc(size_t size) {
  Count();
  return __libc_malloc(size);
}

void* calloc(size_t nmemb, size_t size) {
  Count();
  return __libc_calloc(nmemb, size);
}

void* realloc(void* ptr, size_t size) {
  Count();
  return __libc_realloc(ptr, size);
}

void free(void* ptr) {
  Count();
  __libc_free(ptr);
}

int __wrap_usleep(useconds_t microseconds);
int __wrap_usleep(useconds_t /*microseconds*/) {
  return 0;
}  // the stop's patience is no matter here

// The log: our own is for signal handlers, and tested by itself.
void writelog(const char*, const char*, const char*, const char*, const char*, int) {}

}  // extern "C"

namespace {

std::unique_ptr<CLinuxThread> stopped;

void StopInHandler(int /*signal*/) {
  isWatched = true;
  (void)stopped->Stop();
  isWatched = false;
}

TEST(StopAllocationTest, AStopInASignalsHandlerAsksForNoMemory) {
  Routine routine;
  stopped = std::make_unique<CLinuxThread>();
  ASSERT_NE(SIG_ERR, std::signal(SIGTERM, StopInHandler));
  ASSERT_EQ(0, stopped->Start(Routine::Run, &routine));
  ASSERT_EQ(0, raise(SIGTERM));
  EXPECT_EQ(0, requests);
  isWatched = true;
  ::operator delete(::operator new(1));
  EXPECT_EQ(2, requests) << "requests are counted";
  isWatched = false;
  while (!CLinuxThread::WaitUntilNoneRuns(1)) {
  }
  stopped.reset();
}

}  // namespace
