// SPDX-License-Identifier: MIT
// watch and pipe against the real service.
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <vector>

#include "relayctl/RelayctlTest.h"

namespace {

// What tells of another peer; its name and process follow.
constexpr const char* kTaken =
    "! no answer from 127.0.0.1:60004 yet: another peer holds the link: ";

// As many links as the kernel takes for the service, which takes none of them.
class FullQueue {
 public:
  FullQueue() {
    while (Adds()) {
    }
  }
  ~FullQueue() {
    for (const int link : links) {
      (void)close(link);
    }
  }
  FullQueue(const FullQueue&) = delete;
  FullQueue& operator=(const FullQueue&) = delete;

 private:
  bool Adds() {
    links.push_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(60004);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    (void)connect(links.back(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    pollfd state{links.back(), POLLOUT, 0};
    return poll(&state, 1, 300) == 1;
  }

  std::vector<int> links;
};

class WatchTest : public RelayctlTest {
 protected:
  void Watch(const std::string& options = "--time none") {
    watch = std::make_unique<Background>("relayctl watch '#PhysicalPort0' " + options);
  }

  void PlugStartAndWatch(const std::string& options = "--time none") {
    device = std::make_unique<Device>();
    StartListening();
    Watch(options);
    ASSERT_TRUE(watch->Prints("#PhysicalPort0: open"));
  }

  std::unique_ptr<Background> watch;
};

TEST_F(WatchTest, ShowsWhatComesAsHexAndText) {
  PlugStartAndWatch("--time none --split 0");
  ASSERT_TRUE(device->Sends("M10\r\n"));
  EXPECT_TRUE(
      watch->Prints("< #PhysicalPort0  4D 31 30 0D 0A                                   M10..\n"));
}

TEST_F(WatchTest, PutsTogetherWhatNoSilenceSplits) {
  PlugStartAndWatch("--time none --split 5000 --show text");
  ASSERT_TRUE(device->Sends("one"));
  ASSERT_TRUE(Service::PrintsError("Received(3)"));
  ASSERT_TRUE(device->Sends("two"));
  ASSERT_TRUE(Service::PrintsError("Received(3)", 2));
  EXPECT_TRUE(watch->Prints("< #PhysicalPort0  onetwo\n"));
}

TEST_F(WatchTest, SplitsWhereTheLineWasSilent) {
  PlugStartAndWatch("--time none --split 1 --show text");
  ASSERT_TRUE(device->Sends("one"));
  ASSERT_TRUE(watch->Prints("< #PhysicalPort0  one\n"));
  ASSERT_TRUE(device->Sends("two"));
  EXPECT_TRUE(watch->Prints("< #PhysicalPort0  two\n"));
}

TEST_F(WatchTest, EndsWithStatisticsWhenItIsInterrupted) {
  PlugStartAndWatch("--time none --split 0");
  ASSERT_TRUE(device->Sends("abc"));
  ASSERT_TRUE(watch->Prints("61 62 63"));
  watch->Signal(SIGINT);
  EXPECT_EQ("exit 0", watch->WaitForExit());
  EXPECT_NE(std::string::npos, watch->Output().find("= #PhysicalPort0: 3 bytes in 1 messages"))
      << watch->Output();
}

TEST_F(WatchTest, WritesALogBeside) {
  PlugStartAndWatch("--time none --split 0 --log /tmp/e2e/watched");
  ASSERT_TRUE(device->Sends("abc"));
  ASSERT_TRUE(watch->Prints("61 62 63"));
  watch->Signal(SIGTERM);
  EXPECT_EQ("exit 0", watch->WaitForExit());
  EXPECT_EQ(watch->Output(), workplace::ReadWhole("/tmp/e2e/watched"));
}

TEST_F(WatchTest, AsJsonEachLineIsAnObject) {
  PlugStartAndWatch("--split 0 --json");
  ASSERT_TRUE(device->Sends("A\"\n"));
  EXPECT_TRUE(watch->Prints(
      "\"port\":\"#PhysicalPort0\",\"direction\":\"from\",\"hex\":\"41220A\",\"text\":"
      "\"A\\\"\\u000A\"}\n"));
}

TEST_F(WatchTest, ShowsTimesInThreeForms) {
  PlugStartAndWatch("--time delta --split 0");
  EXPECT_TRUE(watch->Prints("   +0.")) << watch->Output();
  watch.reset();
  Background clock("relayctl watch X --time clock");
  EXPECT_TRUE(clock.Prints(":")) << clock.Output();
}

TEST_F(WatchTest, LinksAndOpensAgainWhenTheServiceWasKilled) {
  PlugStartAndWatch("--time none --split 0");
  ASSERT_TRUE(device->Sends("1"));
  ASSERT_TRUE(watch->Prints("< #PhysicalPort0  31"));
  for (int round = 2; round < 4; ++round) {
    service->Signal(SIGKILL);
    ASSERT_EQ("signal 9", service->WaitForExit());
    StartService();
    ASSERT_TRUE(Eventually([this] { return service->Holds(device->Node()); }));
    ASSERT_TRUE(Eventually([&] {
      const std::string shown = watch->Output();
      return shown.find("open\n", shown.rfind("ended the link")) != std::string::npos;
    })) << watch->Output();
    ASSERT_TRUE(device->Sends(std::to_string(round)));
    EXPECT_TRUE(watch->Prints("< #PhysicalPort0  3" + std::to_string(round)));
  }
  watch->Signal(SIGINT);
  EXPECT_EQ("exit 0", watch->WaitForExit());
  EXPECT_NE(std::string::npos, watch->Output().find("opened 3 times")) << watch->Output();
}

TEST_F(WatchTest, HintsAtAMissingHash) {
  StartListening();
  Background without("relayctl watch PhysicalPort0");
  EXPECT_TRUE(without.Prints("names begin with #: '#PhysicalPort0'\n")) << without.Output();
}

TEST_F(WatchTest, TellsItAlsoWhenTheKernelTakesNoFurtherLink) {
  StartLinked();
  const FullQueue queue;
  Watch();
  EXPECT_TRUE(watch->Prints(kTaken)) << watch->Output();
}

TEST_F(WatchTest, AnEndWithoutALinkIsNoSuccess) {
  Background without("relayctl watch '#PhysicalPort0' --for 0.2");
  EXPECT_EQ("exit 3", without.WaitForExit());
  EXPECT_TRUE(without.Output().ends_with(
      "\nrelayctl: nothing listens on 127.0.0.1:60004: is the service running?\n"))
      << without.Output();
  StartLinked();
  Background second("relayctl watch '#PhysicalPort0' --for 2");
  EXPECT_EQ("exit 4", second.WaitForExit());
  EXPECT_NE(std::string::npos, second.Output().find(kTaken)) << second.Output();
}

TEST_F(WatchTest, UsesColourOnATerminalOnly) {
  device = std::make_unique<Device>();
  StartListening();
  const std::string watching = "relayctl watch \"#PhysicalPort0\" --for 1.5";
  const auto onTerminal = [&](const std::string& environment) {
    return RunShell(environment + " script -qefc '" + watching + "' /dev/null </dev/null").output;
  };
  EXPECT_NE(std::string::npos, onTerminal("TERM=xterm").find("\x1B[32m! linked"));
  EXPECT_EQ(std::string::npos, onTerminal("TERM=xterm NO_COLOR=1").find('\x1B'));
  EXPECT_EQ(std::string::npos, onTerminal("TERM=dumb").find('\x1B'));
  EXPECT_EQ(std::string::npos, RunShell("TERM=xterm " + watching).output.find('\x1B'));
}

class PipeTest : public RelayctlTest {};

TEST_F(PipeTest, PassesBothWays) {
  PlugAndStart();
  Background pipe("echo question | relayctl pipe '#PhysicalPort0' --exit-after 5 --until '\\n'");
  EXPECT_EQ("question\n", device->Reads(9));
  ASSERT_TRUE(device->Sends("answer\n"));
  EXPECT_EQ("exit 0", pipe.WaitForExit());
  EXPECT_EQ("answer\n", pipe.Output());
}

TEST_F(PipeTest, EndsBehindTheEndOfTheInputOnceThePortIsSilent) {
  PlugAndStart();
  Background pipe("printf x | relayctl pipe '#PhysicalPort0' --exit-after 1");
  EXPECT_EQ("x", device->Reads(1));
  EXPECT_EQ("exit 0", pipe.WaitForExit());
  EXPECT_EQ("", pipe.Output());
}

TEST_F(PipeTest, WithIdleEndsWhateverTheInput) {
  PlugAndStart();
  EXPECT_EQ(0, RunShell("mkfifo /tmp/e2e/input; "
                        "relayctl pipe '#PhysicalPort0' --idle 0.2 0<>/tmp/e2e/input")
                   .status);
}

TEST_F(PipeTest, EndsWithItsStatusWhenTheServiceDies) {
  PlugAndStart();
  Background pipe("sleep 100 | relayctl pipe '#PhysicalPort0'");
  ASSERT_TRUE(Eventually([this] { return service->Holds(device->Node()); }));
  service->Signal(SIGKILL);
  EXPECT_TRUE(pipe.Prints("relayctl: the service at 127.0.0.1:60004 ended the link\n"));
}

}  // namespace
