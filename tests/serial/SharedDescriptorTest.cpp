// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "serial/SharedDescriptor.h"
#include "support/CancelledThread.h"
#include "support/Eventually.h"

namespace {

int OpenNull() { return open("/dev/null", O_RDWR | O_CLOEXEC); }

bool IsOpen(int number) { return fcntl(number, F_GETFD) != -1; }

TEST(SharedDescriptorTest, NothingIsOpenAtFirst) {
  CSharedDescriptor descriptor;
  EXPECT_FALSE(descriptor.IsOpen());
  EXPECT_EQ(-1, descriptor.Use()->Number());
  EXPECT_EQ(0, descriptor.Close(descriptor.TakeOut()));
}

TEST(SharedDescriptorTest, CloseGivesTheNumberBack) {
  CSharedDescriptor descriptor;
  const int number = OpenNull();
  descriptor.Set(number);
  EXPECT_EQ(number, descriptor.Use()->Number());
  EXPECT_EQ(0, descriptor.Close(descriptor.TakeOut()));
  EXPECT_FALSE(IsOpen(number));
  EXPECT_FALSE(descriptor.IsOpen());
}

TEST(SharedDescriptorTest, ANumberThatIsInUseIsGivenBackByItsLastUser) {
  CSharedDescriptor descriptor;
  const int number = OpenNull();
  descriptor.Set(number);
  {
    const auto use = descriptor.Use();
    EXPECT_EQ(0, descriptor.Close(descriptor.TakeOut()));
    EXPECT_EQ(-1, descriptor.Use()->Number()) << "nobody can begin to use it any more";
    EXPECT_EQ(number, use->Number());
    EXPECT_TRUE(IsOpen(number)) << "no other device can get the number meanwhile";
  }
  EXPECT_FALSE(IsOpen(number));
}

// That the call has ended is seen in a way that orders nothing: ThreadSanitizer tells when the
// close does not order it either.
TEST(SharedDescriptorTest, ACallThatHasEndedComesBeforeTheClose) {
  CSharedDescriptor descriptor;
  descriptor.Set(OpenNull());
  std::atomic<bool> hasEnded{false};
  std::thread user([&descriptor, &hasEnded] {
    {
      const auto use = descriptor.Use();
      EXPECT_EQ(1, write(use->Number(), "x", 1));
    }
    hasEnded.store(true, std::memory_order_relaxed);
  });
  EXPECT_TRUE(Eventually([&hasEnded] { return hasEnded.load(std::memory_order_relaxed); }));
  EXPECT_EQ(0, descriptor.Close(descriptor.TakeOut()));
  user.join();
}

TEST(SharedDescriptorTest, OnlyOneOfTwoClosersGetsTheNumber) {
  CSharedDescriptor descriptor;
  const int number = OpenNull();
  descriptor.Set(number);
  const auto first = descriptor.TakeOut();
  const auto second = descriptor.TakeOut();
  EXPECT_EQ(-1, second->Number());
  EXPECT_EQ(0, descriptor.Close(second));
  EXPECT_TRUE(IsOpen(number));
  EXPECT_EQ(0, descriptor.Close(first));
  EXPECT_FALSE(IsOpen(number));
}

TEST(SharedDescriptorTest, ItsEndClosesWhatIsOpen) {
  const int number = OpenNull();
  {
    CSharedDescriptor descriptor;
    descriptor.Set(number);
  }
  EXPECT_FALSE(IsOpen(number));
}

TEST(SharedDescriptorTest, ACancelledThreadGivesTheNumberBackWithTheLastUse) {
  CSharedDescriptor descriptor;
  const int number = OpenNull();
  descriptor.Set(number);
  CancelledThread thread([&descriptor] {
    const auto use = descriptor.Use();
    EXPECT_EQ(0, descriptor.Close(descriptor.TakeOut()));
  });
  EXPECT_TRUE(thread.stepDone);
  EXPECT_FALSE(IsOpen(number));
}

}  // namespace
