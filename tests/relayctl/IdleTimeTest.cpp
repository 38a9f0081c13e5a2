// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "machine/IdleTime.h"
#include "support/Eventually.h"

namespace {

using Clock = std::chrono::steady_clock;

std::vector<size_t> Processors() {
  cpu_set_t allowed{};
  EXPECT_EQ(0, sched_getaffinity(0, sizeof allowed, &allowed));
  std::vector<size_t> processors;
  for (size_t processor = 0; processor < CPU_SETSIZE; ++processor) {
    if (CPU_ISSET(processor, &allowed)) {
      processors.push_back(processor);
    }
  }
  return processors;
}

void RunOn(size_t processor) {
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(processor, &one);
  ASSERT_EQ(0, sched_setaffinity(0, sizeof one, &one));
}

// A thread that has run on one processor and waits.
class Sleeper {
 public:
  explicit Sleeper(size_t processor) {
    thread = std::thread([this, processor] {
      RunOn(processor);
      id = gettid();
      mayEnd.wait();
    });
    EXPECT_TRUE(Eventually([this] { return id != 0; }));
  }

  ~Sleeper() {
    mayEnd.count_down();
    thread.join();
  }

  std::string Folder() const { return "/proc/self/task/" + std::to_string(id); }

 private:
  std::atomic<pid_t> id = 0;
  std::latch mayEnd{1};
  std::thread thread;
};

// The processors' clocks differ by seconds where a host takes them away from the machine.
void IsToldTo(size_t reader, size_t processor) {
  std::thread([=] {
    RunOn(reader);
    SCOPED_TRACE(std::to_string(reader) + " looks at " + std::to_string(processor));
    const auto begin = Clock::now();
    const Sleeper sleeper(processor);
    const auto limit = [=] {
      constexpr double kTick = 0.01;  // until which the clock may be late
      return std::chrono::duration<double>(Clock::now() - begin).count() + kTick;
    };
    double idle = 0;
    EXPECT_TRUE(Eventually([&] {
      idle = IdleSecondsOf(sleeper.Folder());
      return idle >= 0.05 || idle > limit();
    }));
    EXPECT_LE(idle, limit());
    EXPECT_EQ(std::vector{reader}, Processors());
  }).join();
}

TEST(IdleTimeTest, IsToldByTheClockOfTheProcessorThatTheThreadRanOn) {
  const std::vector<size_t> processors = Processors();
  for (const size_t reader : {processors.front(), processors.back()}) {
    for (const size_t processor : {processors.front(), processors.back()}) {
      IsToldTo(reader, processor);
    }
  }
}

TEST(IdleTimeTest, IsNothingOfAThreadThatIsGone) {
  std::string folder;
  {
    const Sleeper sleeper(Processors().front());
    folder = sleeper.Folder();
  }
  EXPECT_EQ(0, IdleSecondsOf(folder));
}

}  // namespace
