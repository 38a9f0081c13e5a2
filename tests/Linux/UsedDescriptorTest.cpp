// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <optional>
#include <thread>
#include <vector>

#include "Linux/UsedDescriptor.h"
#include "support/CancelledThread.h"

namespace {

int OpenNumber() { return open("/dev/null", O_RDONLY | O_CLOEXEC); }

bool IsGivenAway(int number) { return fcntl(number, F_GETFD) == -1; }

class UsedDescriptorTest : public testing::Test {
 protected:
  const int number = OpenNumber();
  CUsedDescriptor descriptor;
};

TEST_F(UsedDescriptorTest, IsUsedUntilItIsClosed) {
  EXPECT_FALSE(descriptor.IsOpen());
  EXPECT_EQ(-1, CUsedDescriptor::CUse(descriptor).Number());
  ASSERT_TRUE(descriptor.Set(number));
  EXPECT_TRUE(descriptor.IsOpen());
  EXPECT_EQ(number, CUsedDescriptor::CUse(descriptor).Number());
  descriptor.Close();
  EXPECT_FALSE(descriptor.IsOpen());
  EXPECT_EQ(-1, CUsedDescriptor::CUse(descriptor).Number());
  EXPECT_TRUE(IsGivenAway(number));
}

TEST_F(UsedDescriptorTest, TheNumberIsGivenBackWithTheLastUse) {
  ASSERT_TRUE(descriptor.Set(number));
  std::optional<CUsedDescriptor::CUse> first(descriptor);
  std::optional<CUsedDescriptor::CUse> second(descriptor);
  descriptor.Close();
  EXPECT_FALSE(descriptor.IsOpen());
  EXPECT_EQ(-1, CUsedDescriptor::CUse(descriptor).Number()) << "a use that begins too late";
  first.reset();
  EXPECT_FALSE(IsGivenAway(number));
  second.reset();
  EXPECT_TRUE(IsGivenAway(number));
}

TEST_F(UsedDescriptorTest, ASecondCloseClosesNothing) {
  ASSERT_TRUE(descriptor.Set(number));
  descriptor.Close();
  ASSERT_EQ(number, OpenNumber());
  descriptor.Close();
  EXPECT_FALSE(IsGivenAway(number));
  (void)close(number);
}

TEST_F(UsedDescriptorTest, TakesNoOtherWhileOneIsOpenOrUsed) {
  const int other = OpenNumber();
  ASSERT_TRUE(descriptor.Set(number));
  EXPECT_FALSE(descriptor.Set(other));
  {
    const CUsedDescriptor::CUse use(descriptor);
    descriptor.Close();
    EXPECT_FALSE(descriptor.Set(other));
    EXPECT_FALSE(IsGivenAway(other));
  }
  ASSERT_TRUE(descriptor.Set(other));
  EXPECT_EQ(other, CUsedDescriptor::CUse(descriptor).Number());
}

TEST_F(UsedDescriptorTest, TheDestructorCloses) {
  {
    CUsedDescriptor shortLived;
    ASSERT_TRUE(shortLived.Set(number));
  }
  EXPECT_TRUE(IsGivenAway(number));
}

TEST_F(UsedDescriptorTest, ACancelledUseEnds) {
  int ends[2] = {};
  ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
  ASSERT_TRUE(descriptor.Set(ends[0]));
  pthread_t reader{};
  const auto waitInRead = [](void* used) -> void* {
    const CUsedDescriptor::CUse use(*static_cast<CUsedDescriptor*>(used));
    char byte = 0;
    (void)!read(use.Number(), &byte, 1);
    return nullptr;
  };
  ASSERT_EQ(0, pthread_create(&reader, nullptr, waitInRead, &descriptor));
  (void)pthread_cancel(reader);
  (void)pthread_join(reader, nullptr);
  EXPECT_FALSE(IsGivenAway(ends[0]));
  descriptor.Close();
  EXPECT_TRUE(IsGivenAway(ends[0]));
  (void)close(ends[1]);
  (void)close(number);
}

// Two closers and two users at once. A number that is closed twice, or while it is used, is missing
// to the one who has opened it next, or to its user.
TEST_F(UsedDescriptorTest, EachNumberIsClosedOnceAndNeverInUse) {
  std::atomic<bool> ended{false};
  std::atomic<int> missing{0};
  std::vector<std::thread> threads;
  for (int user = 0; user < 2; ++user) {
    threads.emplace_back([&] {
      while (!ended) {
        const CUsedDescriptor::CUse use(descriptor);
        missing += use.Number() != -1 && IsGivenAway(use.Number()) ? 1 : 0;
      }
    });
    threads.emplace_back([&] {
      while (!ended) {
        descriptor.Close();
      }
    });
  }
  int kept = number;
  for (int taken = 0; taken < 5000;) {
    missing += IsGivenAway(kept) ? 1 : 0;
    if (descriptor.Set(kept)) {
      ++taken;
      kept = OpenNumber();
    }
  }
  ended = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(0, missing);
  (void)close(kept);
}

TEST_F(UsedDescriptorTest, ACancelledThreadGivesTheNumberBackWithTheLastUse) {
  ASSERT_TRUE(descriptor.Set(number));
  CancelledThread thread([this] {
    const CUsedDescriptor::CUse use(descriptor);
    descriptor.Close();
  });
  EXPECT_TRUE(thread.stepDone);
  EXPECT_TRUE(IsGivenAway(number));
}

}  // namespace
