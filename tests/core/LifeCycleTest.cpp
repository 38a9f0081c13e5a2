// SPDX-License-Identifier: MIT
// Start, supervision and stop, with a relay connection that the test plays.
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <future>

#include "core/Fakes.h"
#include "core/SerialPortHandler.h"
#include "support/Eventually.h"

namespace {

class LifeCycleTest : public testing::Test {
 protected:
  LifeCycleTest() {
    world.whenPausing = [this] { ++pauses; };
  }
  ~LifeCycleTest() override {
    world.whenPausing = [] {};
  }

  std::future<bool> Run() {
    return std::async(std::launch::async, [this] { return handler.Run(); });
  }
  static bool Ended(std::future<bool>& run) {
    return run.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
  }
  void Stop() { handler.RequestStop(); }

  // Waits until the supervision has looked twice at what is requested. It looks behind each pause.
  void AwaitTwoLooks(std::future<bool>& run) {
    const int before = pauses;
    EXPECT_TRUE(Eventually([&] { return pauses >= before + 3 || HasEnded(run); }));
  }
  static bool HasEnded(std::future<bool>& run) {
    return run.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
  }

  World& world = World::Get();
  std::atomic<int> pauses{0};
  SerialPortHandler handler{{MakeRelay, MakePort}};
};

TEST_F(LifeCycleTest, AStopRequestedBeforeTheFirstLinkStandsIsForgotten) {
  world.prepareRelay = [this](FakeRelay& relay) { relay.whenListening = [this] { Stop(); }; };
  auto run = Run();
  (void)world.RelayNumber(1);
  AwaitTwoLooks(run);
  ASSERT_FALSE(HasEnded(run));
  Stop();
  ASSERT_TRUE(Ended(run));
  EXPECT_TRUE(run.get());
}

TEST_F(LifeCycleTest, AFailedListenEndsRunWithFalseAndLogsNothingMore) {
  world.prepareRelay = [](FakeRelay& relay) { relay.listenResult = 98; };
  auto run = Run();
  ASSERT_TRUE(Ended(run));
  EXPECT_FALSE(run.get());
  EXPECT_EQ(1U, world.log.size());
}

TEST_F(LifeCycleTest, AConnectErrorDropsThePortsAndListensAnewOnThePortLookedUpAfresh) {
  world.configuration["A"] = {"9600", "8", "none", "1", "none"};
  auto run = Run();
  const auto first = world.RelayNumber(1);
  EXPECT_EQ(60004U, first->listenedOn);
  first->Sends("0007 01 02 0001 41");
  world.relayPort = std::make_unique<std::string>("1025");
  (void)first->callbacks.onError("ConnectError", -1, first->callbacks.context);
  const auto second = world.RelayNumber(2);
  EXPECT_EQ(1025U, second->listenedOn);
  EXPECT_TRUE(world.ports.at(0).expired());
  second->Sends("0007 02 02 0001 41");
  EXPECT_EQ("000902020001410002", second->sent.back()) << "the port must be opened again";
  Stop();
  ASSERT_TRUE(Ended(run));
}

// Somebody still holds the first connection, as a receive thread that the bounded stop gave up on
// does for a moment. Its listening end has to be gone all the same: both want the same port.
TEST_F(LifeCycleTest, AConnectionThatIsStillHeldIsClosedBeforeTheNextOneListens) {
  std::atomic<int> closedBefore = -1;
  auto run = Run();
  const auto held = world.RelayNumber(1);
  world.prepareRelay = [&](FakeRelay& next) {
    next.whenListening = [&] { closedBefore = held->closes.load(); };
  };
  (void)held->callbacks.onError("ConnectError", -1, held->callbacks.context);
  (void)world.RelayNumber(2);
  Stop();
  ASSERT_TRUE(Ended(run));
  EXPECT_EQ(1, closedBefore);
}

TEST_F(LifeCycleTest, AnyOtherErrorTextIsIgnored) {
  auto run = Run();
  const auto relay = world.RelayNumber(1);
  (void)relay->callbacks.onError("connecterror", -1, relay->callbacks.context);
  (void)relay->callbacks.onError("ConnectError ", -1, relay->callbacks.context);
  AwaitTwoLooks(run);
  ASSERT_FALSE(HasEnded(run));
  EXPECT_EQ(1U, world.relays.size());
  Stop();
  ASSERT_TRUE(Ended(run));
}

TEST_F(LifeCycleTest, APeerThatLeavesBeforeListenReturnsIsNotForgotten) {
  world.prepareRelay = [this](FakeRelay& relay) {
    if (world.relays.empty()) {
      relay.whenListening = [&relay] {
        (void)relay.callbacks.onError("ConnectError", -1, relay.callbacks.context);
      };
    }
  };
  auto run = Run();
  (void)world.RelayNumber(2);
  Stop();
  ASSERT_TRUE(Ended(run));
}

TEST_F(LifeCycleTest, AFailedListenAfterALinkBreakEndsRunWithoutTheStopMessage) {
  auto run = Run();
  const auto first = world.RelayNumber(1);
  world.prepareRelay = [](FakeRelay& relay) { relay.listenResult = 98; };
  (void)first->callbacks.onError("ConnectError", -1, first->callbacks.context);
  ASSERT_TRUE(Ended(run));
  EXPECT_FALSE(run.get());
  EXPECT_FALSE(world.Logged("3 SerialPortHandler.cpp Serial Port Handler stop."));
}

// Both come while the supervision pauses, so that one look finds both.
TEST_F(LifeCycleTest, AStopThatComesWithALinkBreakDoesNotWaitForTheNextPeer) {
  std::atomic<bool> linked = false;
  world.prepareRelay = [&](FakeRelay& relay) { relay.whenListening = [&] { linked = true; }; };
  world.whenPausing = [&] {
    if (linked.exchange(false)) {
      const auto relay = world.RelayNumber(1);
      (void)relay->callbacks.onError("ConnectError", -1, relay->callbacks.context);
      Stop();
    }
  };
  auto run = Run();
  ASSERT_TRUE(Ended(run));
  EXPECT_TRUE(run.get());
  EXPECT_EQ(1U, world.relays.size());
}

// Each port may take two seconds to stop. The stop is noticed behind the first one, and the others
// are left to the end of the process.
TEST_F(LifeCycleTest, AStopWhileTheLinkIsRebuiltEndsRunWithoutListeningAgain) {
  world.configuration["A"] = world.configuration["B"] = {"9600", "8", "none", "1", "none"};
  std::atomic<int> released = 0;
  world.prepare = [&](FakePort& port) {
    port.whenReleased = [&] {
      // The C library's own locks are not for a handler that stops a thread, too.
      sigset_t held{};
      EXPECT_EQ(0, pthread_sigmask(SIG_BLOCK, nullptr, &held));
      EXPECT_EQ(1, sigismember(&held, SIGTERM));
      if (++released == 1) {
        Stop();
      }
    };
  };
  auto run = Run();
  const auto first = world.RelayNumber(1);
  first->Sends("0007 01 02 0001 41");
  first->Sends("0007 01 02 0001 42");
  (void)first->callbacks.onError("ConnectError", -1, first->callbacks.context);
  ASSERT_TRUE(Ended(run));
  EXPECT_TRUE(run.get());
  EXPECT_EQ(1, released);
  EXPECT_EQ(1U, world.relays.size());
  for (const auto& port : world.ports) {
    if (const auto left = port.lock()) {
      left->whenReleased = nullptr;
    }
  }
}

}  // namespace
