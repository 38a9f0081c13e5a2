// SPDX-License-Identifier: MIT
// A search on a thread that may be cancelled at any time: what opens, closes and removes a file is
// not cut short. The calls are replaced at link time, and tell whether they would let a
// cancellation in; whether they do, is the C library's to decide.
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>

#include "serial/UdevScanner.h"
#include "support/CancelledThread.h"
#include "support/UdevTool.h"

namespace {

std::map<std::string, int> stateAtCall;  // by the call's name

void Note(const char* call) {
  int state = -1;
  (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
  (void)pthread_setcancelstate(state, nullptr);
  stateAtCall[call] = state;
}

}  // namespace

extern "C" {

FILE* __real_fopen(const char* path, const char* mode);
FILE* __wrap_fopen(const char* path, const char* mode);
FILE* __wrap_fopen64(const char* path, const char* mode);
int __real_fclose(FILE* file);
int __wrap_fclose(FILE* file);
int __real_unlink(const char* path);
int __wrap_unlink(const char* path);

FILE* __wrap_fopen(const char* path, const char* mode) {
  Note("fopen");
  return __real_fopen(path, mode);
}

// What fopen is called where files may be large.
FILE* __wrap_fopen64(const char* path, const char* mode) { return __wrap_fopen(path, mode); }

int __wrap_fclose(FILE* file) {
  Note("fclose");
  return __real_fclose(file);
}

int __wrap_unlink(const char* path) {
  Note("unlink");
  return __real_unlink(path);
}

}  // extern "C"

namespace {

TEST(UdevCancellationTest, TheDatabaseIsOpenedAndClosedWithoutACancellation) {
  const UdevTool udev;
  WriteText(kDumpFile, "");
  char node[kDevNameSize] = {};
  EXPECT_EQ(kDeviceNotFound, FindDeviceByPortIndex(0, node));
  EXPECT_EQ(PTHREAD_CANCEL_DISABLE, stateAtCall.at("fopen"));
  EXPECT_EQ(PTHREAD_CANCEL_DISABLE, stateAtCall.at("fclose"));
}

TEST(UdevCancellationTest, TheDatabaseIsRemovedOnACancelledThreadAlsoWithoutRm) {
  const UdevTool udev;
  ASSERT_EQ(0, setenv("PATH", udev.Path("without-programs").c_str(), 1));
  CancelledThread thread([] { const CDeviceDatabase database; });
  EXPECT_TRUE(thread.stepDone);
  EXPECT_EQ(PTHREAD_CANCEL_DISABLE, stateAtCall.at("unlink"));
  EXPECT_FALSE(std::filesystem::exists(kDumpFile));
}

}  // namespace
