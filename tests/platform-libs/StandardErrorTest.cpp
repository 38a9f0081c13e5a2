// SPDX-License-Identifier: MIT
// Standard error that nobody reads. Each test writes in a process of its own, which an alarm ends
// when it waits for ever.
#include <gmock/gmock.h>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <functional>
#include <string_view>
#include <thread>

#include "libKXLogger/StandardError.h"
#include "platform-libs/ScratchFolder.h"
#include "support/InChild.h"
#include "support/Terminal.h"

namespace {

// What another program does between the library's look at the stream and its write.
std::function<void()> afterLook = [] {};

}  // namespace

extern "C" int __real_poll(pollfd* entries, nfds_t count, int timeout);
extern "C" int __wrap_poll(pollfd* entries, nfds_t count, int timeout);

extern "C" int __wrap_poll(pollfd* entries, nfds_t count, int timeout) {
  const int result = __real_poll(entries, count, timeout);
  afterLook();
  return result;
}

namespace {

enum class Owner { kSelf, kOther };

std::string NameOf(const testing::TestParamInfo<Owner>& owner) {
  return owner.param == Owner::kSelf ? "OfThisUser" : "OfAnother";
}

class StandardErrorTest : public testing::TestWithParam<Owner> {
 protected:
  static void Log(std::string_view message) {
    kxlogger::WriteStandardError({kxlogger::LogTime(), 3, "M", "f.cpp", "1", "4", message});
  }

  // One of them finds room for its beginning only. Nothing is allocated: a handler calls it.
  static void LogLinesOfManyLengths() {
    constexpr std::string_view kText =
        "................................................................";
    for (std::size_t i = 0; i < 2000; ++i) {
      Log(kText.substr(0, i % kText.size()));
    }
  }

  static void Take(int stream) {
    if (GetParam() == Owner::kOther) {
      ForbidReopening(stream);
    }
    (void)dup2(stream, STDERR_FILENO);
  }
};

TEST_P(StandardErrorTest, HandlerOfASignalReturns) {
  EXPECT_EQ(0, InChild([] {
              const Terminal terminal;
              Take(terminal.NearEnd());
              (void)std::signal(SIGTERM, [](int) { LogLinesOfManyLengths(); });
              return std::raise(SIGTERM);
            }));
}

// Writes whole pages until none is left.
void Fill(int pipe) {
  pollfd room = {pipe, POLLOUT, 0};
  const std::string page(4096, '.');
  while (__real_poll(&room, 1, 0) == 1) {
    (void)!write(pipe, page.data(), page.size());
  }
}

TEST_P(StandardErrorTest, PipeWhoseLastPageAnotherTakesHoldsUpNobody) {
  EXPECT_EQ(0, InChild([] {
              int ends[2] = {-1, -1};
              (void)!pipe2(ends, O_CLOEXEC);
              Take(ends[1]);
              afterLook = [] { Fill(STDERR_FILENO); };
              for (int i = 0; i < 1000; ++i) {
                Log("m");
              }
              return 0;
            }));
}

INSTANTIATE_TEST_SUITE_P(Stream, StandardErrorTest, testing::Values(Owner::kSelf, Owner::kOther),
                         NameOf);

}  // namespace
