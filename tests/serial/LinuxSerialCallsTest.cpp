// SPDX-License-Identifier: MIT
// What the device asks of the kernel, and what it makes of refusals. The calls are replaced at link
// time; those on the device are written down and answered as the test wants.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <deque>
#include <functional>
#include <map>
#include <ostream>
#include <vector>

#include "serial/LinuxSerial.h"
#include "support/PtyLine.h"
#include "support/StreamCapture.h"

namespace {

constexpr int kThrough = 1'000'000;

std::string followedPath;  // of the device; empty: nothing is followed
int followed = -1;         // its descriptor
std::vector<std::string> calls;
std::function<void()> afterOpen;
std::function<void()> whileSetUp;

// What becomes of the next calls of a name: a positive number goes through, and is how many bytes
// a write takes; 0 takes none; a negative one is the errno. Then all go through.
std::map<std::string, std::deque<int>> answers;

// Notes a call and gives its answer; a refusal's is -1, with errno set.
int AnswerTo(int descriptor, const std::string& name, const std::string& argument = "") {
  if (descriptor == -1 || descriptor != followed) {
    return kThrough;
  }
  calls.push_back(name + "(" + argument + ")");
  std::deque<int>& next = answers[name];
  if (next.empty()) {
    return kThrough;
  }
  const int answer = next.front();
  next.pop_front();
  if (answer >= 0) {
    return answer;
  }
  errno = -answer;
  return -1;
}

}  // namespace

extern "C" {

int __real_open(const char* path, int flags, ...);
int __real_close(int descriptor);
ssize_t __real_read(int descriptor, void* buffer, size_t count);
ssize_t __real_write(int descriptor, const void* bytes, size_t count);
int __real_ioctl(int descriptor, unsigned long request, ...);
int __real_tcgetattr(int descriptor, termios* attributes);
int __real_tcsetattr(int descriptor, int when, const termios* attributes);
int __real_tcflush(int descriptor, int queue);

// No test of this program makes a file, so there is no mode.
int __wrap_open(const char* path, int flags, ...) {
  const int descriptor = __real_open(path, flags);
  if (path == followedPath) {
    followed = descriptor;
    if (afterOpen) {
      afterOpen();
    }
  }
  return descriptor;
}

// What open is called where files may be large.
int __wrap_open64(const char* path, int flags, ...) { return __wrap_open(path, flags); }

int __wrap_close(int descriptor) {
  if (AnswerTo(descriptor, "close") == -1) {
    return -1;
  }
  followed = descriptor == followed ? -1 : followed;
  return __real_close(descriptor);
}

ssize_t __wrap_read(int descriptor, void* buffer, size_t count) {
  return AnswerTo(descriptor, "read") == -1 ? -1 : __real_read(descriptor, buffer, count);
}

ssize_t __wrap_write(int descriptor, const void* bytes, size_t count) {
  const int answer = AnswerTo(descriptor, "write", std::to_string(count));
  return answer > 0 ? __real_write(descriptor, bytes, std::min(count, static_cast<size_t>(answer)))
                    : answer;
}

int __wrap_ioctl(int descriptor, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  const bool clears = request == TIOCMBIC;
  const std::string text = clears ? "-" + std::to_string(*static_cast<int*>(argument)) : "?";
  return AnswerTo(descriptor, "ioctl", text) == -1 ? -1
                                                   : __real_ioctl(descriptor, request, argument);
}

// What ioctl is called where time has 64 bits on a 32-bit machine.
int __wrap___ioctl_time64(int descriptor, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  return __wrap_ioctl(descriptor, request, argument);
}

int __wrap_tcgetattr(int descriptor, termios* attributes) {
  return AnswerTo(descriptor, "tcgetattr") == -1 ? -1 : __real_tcgetattr(descriptor, attributes);
}

int __wrap_tcsetattr(int descriptor, int when, const termios* attributes) {
  if (descriptor == followed && whileSetUp) {
    whileSetUp();
  }
  return AnswerTo(descriptor, "tcsetattr") == -1 ? -1
                                                 : __real_tcsetattr(descriptor, when, attributes);
}

int __wrap_tcflush(int descriptor, int queue) {
  const std::string text = queue == TCIOFLUSH ? "TCIOFLUSH" : std::to_string(queue);
  return AnswerTo(descriptor, "tcflush", text) == -1 ? -1 : __real_tcflush(descriptor, queue);
}

}  // extern "C"

namespace {

using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr SerialSettings kSettings = {115200, 8, kParityNone, kOneStopBit, kNoFlowControl};
constexpr uint8_t kBytes[] = {0x41, 0x42, 0x43, 0x44, 0x45};

class LinuxSerialCallsTest : public testing::Test {
 public:
  LinuxSerialCallsTest() { followedPath = line.Node(); }
  ~LinuxSerialCallsTest() override {
    followedPath.clear();
    calls.clear();
    afterOpen = nullptr;
    whileSetUp = nullptr;
    answers.clear();
  }

  void Open() {
    ASSERT_EQ(0, serial.Open(line.Node(), kSettings));
    calls.clear();
  }

  PtyLine line;
  CLinuxSerial serial;
};

TEST_F(LinuxSerialCallsTest, CloseDropsDtrThenDiscardsThenCloses) {
  Open();
  EXPECT_EQ(0, serial.Close());
  EXPECT_THAT(calls, ElementsAre("ioctl(-2)", "tcflush(TCIOFLUSH)", "close()"));
}

TEST_F(LinuxSerialCallsTest, CloseIgnoresALineWithoutModemLinesOrWithNothingToDiscard) {
  Open();
  answers["ioctl"] = {-ENOTTY};
  answers["tcflush"] = {-EIO};
  EXPECT_EQ(0, serial.Close());
  EXPECT_EQ("close()", calls.back());
}

TEST_F(LinuxSerialCallsTest, ACloseThatFailsReturnsMinus1AndKeepsTheDescriptor) {
  Open();
  const int descriptors = OpenDescriptorCount();
  answers["close"] = {-EIO};
  EXPECT_EQ(-1, serial.Close());
  EXPECT_EQ(-2, serial.Open(line.Node(), kSettings));
  EXPECT_EQ(5, serial.Write(kBytes, 5));
  EXPECT_EQ("ABCDE", line.Receives(5));
  EXPECT_EQ(0, serial.Close());
  EXPECT_EQ(descriptors - 1, OpenDescriptorCount());
}

// Its settings and what is pending may be another port's by then.
TEST_F(LinuxSerialCallsTest, ACloseDuringAnOpenEndsItAndLeavesTheLineAlone) {
  const int descriptors = OpenDescriptorCount();
  afterOpen = [this] { EXPECT_EQ(0, serial.Close()); };
  EXPECT_EQ(-1, serial.Open(line.Node(), kSettings));
  EXPECT_THAT(calls, ElementsAre("close()"));
  EXPECT_EQ(descriptors, OpenDescriptorCount());
}

// The settings of an adapter that is being pulled take seconds.
TEST_F(LinuxSerialCallsTest, ACloseWhileAnOpenSetsUpEndsItAndDiscardsNothing) {
  const int descriptors = OpenDescriptorCount();
  whileSetUp = [this] { EXPECT_EQ(0, serial.Close()); };
  EXPECT_EQ(-1, serial.Open(line.Node(), kSettings));
  EXPECT_THAT(calls, Not(Contains(AnyOf(StartsWith("tcflush"), StartsWith("ioctl")))));
  EXPECT_EQ(descriptors, OpenDescriptorCount());
}

// By then somebody else may have opened it.
TEST_F(LinuxSerialCallsTest, BehindTheCloseForGoodAnOpenLeavesTheLineAlone) {
  ASSERT_EQ(0, serial.Open(line.Node(), kSettings));
  EXPECT_EQ(0, serial.CloseForGood());
  calls.clear();
  afterOpen = [] { ADD_FAILURE() << "it is opened"; };
  EXPECT_EQ(-1, serial.Open(line.Node(), kSettings));
  EXPECT_THAT(calls, IsEmpty());
}

// An adapter that does not answer can hold open for seconds. The C library acts on a cancellation
// that came meanwhile on its way out of open, although open has succeeded.
TEST_F(LinuxSerialCallsTest, AnOpenWhoseThreadIsCancelledMeanwhileKeepsItsDescriptor) {
  const int descriptors = OpenDescriptorCount();
  afterOpen = [] {
    (void)pthread_cancel(pthread_self());
    pthread_testcancel();
  };
  const auto open = [](void* self) -> void* {
    auto& test = *static_cast<LinuxSerialCallsTest*>(self);
    EXPECT_EQ(0, test.serial.Open(test.line.Node(), kSettings));
    return nullptr;
  };
  pthread_t thread{};
  ASSERT_EQ(0, pthread_create(&thread, nullptr, open, this));
  ASSERT_EQ(0, pthread_join(thread, nullptr));
  EXPECT_EQ(0, serial.Close());
  EXPECT_EQ(descriptors, OpenDescriptorCount());
}

struct OpenFailure {
  const char* name;
  const char* call;
  std::deque<int> answers;
};

void PrintTo(const OpenFailure& test, std::ostream* stream) { *stream << test.name; }

class OpenFailureTest : public LinuxSerialCallsTest,
                        public testing::WithParamInterface<OpenFailure> {};

TEST_P(OpenFailureTest, ClosesTheDeviceAgainAndReturnsMinus1) {
  const int descriptors = OpenDescriptorCount();
  answers[GetParam().call] = GetParam().answers;
  {
    StreamCapture output(STDOUT_FILENO);
    EXPECT_EQ(-1, serial.Open(line.Node(), kSettings));
    EXPECT_EQ("", output.Rest());
  }
  EXPECT_EQ(descriptors, OpenDescriptorCount());
  EXPECT_THAT(calls, testing::IsSupersetOf({"ioctl(-2)", "close()"}));
  EXPECT_EQ(0, serial.Open(line.Node(), kSettings));
}

INSTANTIATE_TEST_SUITE_P(
    Failing, OpenFailureTest,
    testing::Values(OpenFailure{"ReadingTheAttributes", "tcgetattr", {-EIO}},
                    OpenFailure{"SettingRawMode", "tcsetattr", {-EIO}},
                    OpenFailure{"ReadingTheAttributesForTheSettings", "tcgetattr", {0, -EIO}},
                    OpenFailure{"SettingTheLine", "tcsetattr", {0, -EIO}},
                    OpenFailure{"DiscardingWhatIsPending", "tcflush", {-EIO}}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(LinuxSerialCallsTest, WriteOfLength0OrLessReturnsTheLengthWithoutACall) {
  Open();
  EXPECT_EQ(0, serial.Write(kBytes, 0));
  EXPECT_EQ(-3, serial.Write(kBytes, -3));
  EXPECT_THAT(calls, IsEmpty());
}

TEST_F(LinuxSerialCallsTest, WriteContinuesShortWritesWhereTheyStopped) {
  Open();
  answers["write"] = {2, 2};
  EXPECT_EQ(5, serial.Write(kBytes, 5));
  EXPECT_THAT(calls, ElementsAre("write(5)", "write(3)", "write(1)"));
  EXPECT_EQ("ABCDE", line.Receives(5));
}

// It does not say how much went out before.
TEST_F(LinuxSerialCallsTest, AWriteThatTakesNothingOrFailsMakesWriteReturn0) {
  Open();
  for (const int answer : {0, -EIO}) {
    calls.clear();
    answers["write"] = {2, answer};
    EXPECT_EQ(0, serial.Write(kBytes, 5));
    EXPECT_THAT(calls, ElementsAre("write(5)", "write(3)"));
  }
}

TEST_F(LinuxSerialCallsTest, AReadThatFailsReturnsMinus1WithItsErrno) {
  Open();
  answers["read"] = {-EINTR};
  uint8_t byte = 0;
  EXPECT_EQ(-1, serial.Read(&byte, 1));
  EXPECT_EQ(EINTR, errno);
  EXPECT_THAT(calls, ElementsAre("read()")) << "it is not tried again";
}

}  // namespace
