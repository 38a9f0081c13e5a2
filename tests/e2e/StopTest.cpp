// SPDX-License-Identifier: MIT
// Each state of the service, ended by each of the three signals.
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string_view>

#include "e2e/ServiceTest.h"

namespace {

struct Signal {
  const char* name;
  int number;
};

void PrintTo(const Signal& row, std::ostream* out) { *out << row.name; }

constexpr Signal kSignals[] = {{"Sigint", SIGINT}, {"Sighup", SIGHUP}, {"Sigterm", SIGTERM}};

class StopTest : public ServiceTest, public testing::WithParamInterface<Signal> {
 protected:
  // At once, whatever the service is doing.
  std::string Stopped() {
    service->Signal(GetParam().number);
    return service->WaitForExit();
  }

  void ExpectAnOrderlyStop() {
    EXPECT_EQ("exit 0", Stop(GetParam().number));
    EXPECT_TRUE(Service::Errors().ends_with("終了\n"));
    EXPECT_EQ(1U, LogFile::Count(kStopRequested));
    EXPECT_EQ(1U, LogFile::Count(kStopped));
    EXPECT_EQ(0U, LogFile::Count(kLinkFailed));
  }

  void ExpectAStopUnderTheListeningSocket() {
    EXPECT_EQ("exit 255", Stopped());
    EXPECT_EQ(std::string::npos, Service::Errors().find("終了"));
    EXPECT_TRUE(Service::Output().ends_with("[LISTEN]IP:127.0.0.1(PORT:60004)\n"));
    EXPECT_EQ((std::vector<std::string>{kStarted, kStopRequested, kLinkFailed}), LogFile::Lines());
  }
};

INSTANTIATE_TEST_SUITE_P(By, StopTest, testing::ValuesIn(kSignals), NameOf<Signal>);

TEST_P(StopTest, WhileListeningEndsWith255AndNoExitText) {
  StartService();
  ASSERT_TRUE(Service::Prints("[LISTEN]IP:"));
  ExpectAStopUnderTheListeningSocket();
  EXPECT_EQ("", Service::Errors());
}

TEST_P(StopTest, WhileConnectedEndsWithStatus0) {
  StartLinked();
  ExpectAnOrderlyStop();
  EXPECT_EQ("closed", relay->NextPacket());
}

TEST_P(StopTest, WithOpenPortsEndsWithStatus0) {
  configuration.Port("#USBSerialPort0", "9600 8 none 1 none");
  udev.AddAdapterAtPort(0, "/dev/ttyUSB0");
  const Device adapter("/dev/ttyUSB0");
  StartWithOpenPort();
  ASSERT_EQ(Wire("0017 01 02 000F '#USBSerialPort0' 0000"),
            relay->Answer("0015 01 02 000F '#USBSerialPort0'"));
  ExpectAnOrderlyStop();
}

TEST_P(StopTest, WithAnUnpluggedPortEndsWithStatus0) {
  StartWithOpenPort();
  device->Unplug();
  ASSERT_TRUE(Service::Prints("(/dev/ttyS2)port close\n"));
  ExpectAnOrderlyStop();
}

TEST_P(StopTest, WhileListeningAgainEndsWith255AndNoExitText) {
  StartLinked();
  relay->Leaves();
  ASSERT_TRUE(Service::Prints("[LISTEN]IP:", 2));
  ExpectAStopUnderTheListeningSocket();
}

// The stop comes before the relink looks, in the middle of it, or behind it.
TEST_P(StopTest, RightAfterTheRelayHasLeftEndsTheProcess) {
  StartWithOpenPort();
  Settle();  // a stop before the supervision has begun is forgotten
  relay->Leaves();
  const std::string end = Stopped();
  EXPECT_TRUE(end == "exit 0" || end == "exit 255") << end;
  EXPECT_EQ(end == "exit 0", Service::Errors().ends_with("終了\n"));
  EXPECT_EQ(end == "exit 0" ? 1U : 0U, LogFile::Count(kStopped));
}

TEST_P(StopTest, WhileARelayReadsNothingEndsWithStatus0) {
  StartWithOpenPort();
  Clog();
  ExpectAnOrderlyStop();
}

class SlowSearchTest : public ServiceTest {
 protected:
  SlowSearchTest() {
    configuration.Port("#USBSerialPort0", "9600 8 none 1 none");
    UdevDatabase::WaitsFor("/tmp/e2e/go-on");
  }
  void StartSearching() {
    StartLinked();
    relay->Sends("0015 01 02 000F '#USBSerialPort0'");
    ASSERT_TRUE(Eventually([] { return UdevDatabase::Runs() == 1; }));
    Settle();  // a stop before the supervision has begun is forgotten
  }
};

class SearchStopTest : public SlowSearchTest, public testing::WithParamInterface<Signal> {};

INSTANTIATE_TEST_SUITE_P(By, SearchStopTest,
                         testing::Values(Signal{"Sighup", SIGHUP}, Signal{"Sigterm", SIGTERM}),
                         NameOf<Signal>);

TEST_P(SearchStopTest, DuringASlowSearchForAnAdapterEndsWithStatus0AndLeavesNothingBehind) {
  StartSearching();
  EXPECT_EQ("exit 0", Stop(GetParam().number));
  EXPECT_TRUE(Service::Errors().ends_with("終了\n"));
  EXPECT_FALSE(std::filesystem::exists("/tmp/deviceinfo.txt"));
  EXPECT_TRUE(Eventually([this] { return kill(-service->Pid(), 0) == -1 && errno == ESRCH; }))
      << "a process of the service's group is left";
}

// The thread that searches admits all signals meanwhile, for the sake of the tool.
TEST_F(SlowSearchTest, AStopSignalThatMeetsTheSearchingThreadStopsTheService) {
  StartSearching();
  const std::string tasks = "/proc/" + std::to_string(service->Pid()) + "/task";
  pid_t searching = 0;
  for (const auto& task : std::filesystem::directory_iterator(tasks)) {
    const pid_t thread = std::stoi(task.path().filename());
    searching = std::max(searching, thread);  // the youngest
  }
  ASSERT_EQ(0, syscall(SYS_tgkill, service->Pid(), searching, SIGTERM));
  workplace::WriteWhole("/tmp/e2e/go-on", "");  // ThreadSanitizer handles it behind the search
  EXPECT_EQ("exit 0", service->WaitForExit());
  EXPECT_EQ(1U, LogFile::Count(kStopRequested));
}

// bash and BusyBox pass on what they find blocked, where dash clears it.
TEST_F(SlowSearchTest, TheToolsRunWithNoSignalBlocked) {
  ASSERT_EQ(0, std::system("mount --bind /bin/bash /bin/sh"));
  UdevDatabase::Does("grep SigBlk /proc/self/status >/tmp/e2e/blocked");
  StartLinked();
  EXPECT_EQ(Wire("0017 01 02 000F '#USBSerialPort0' 0002"),
            relay->Answer("0015 01 02 000F '#USBSerialPort0'"));
  EXPECT_EQ("SigBlk:\t0000000000000000\n", workplace::ReadWhole("/tmp/e2e/blocked"));
}

// While the C library runs a command for a process, that process ignores SIGINT.
TEST_F(SlowSearchTest, ASigintDuringASlowSearchIsLost) {
  StartSearching();
  service->Signal(SIGINT);
  workplace::WriteWhole("/tmp/e2e/go-on", "");
  EXPECT_EQ(Wire("0017 01 02 000F '#USBSerialPort0' 0002"), relay->NextPacket());
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
  EXPECT_EQ(0U, LogFile::Count(kStopRequested));
  EXPECT_EQ("exit 0", Stop(SIGINT));
}

TEST_F(StopTest, ASecondSignalDuringTheStopEndsItOnceWithStatus0) {
  StartWithOpenPort();
  Settle();
  service->Signal(SIGTERM);
  ASSERT_TRUE(LogFile::Shows(kStopRequested));
  service->Signal(SIGHUP);  // while the first is still waiting for the receive thread
  EXPECT_EQ("exit 0", service->WaitForExit());
  EXPECT_TRUE(Service::Errors().ends_with("終了\n"));
  EXPECT_EQ(Service::Errors().find("終了"), Service::Errors().rfind("終了"));
  EXPECT_EQ(2U, LogFile::Count(kStopRequested));
  EXPECT_EQ(1U, LogFile::Count(kStopped));
}

TEST_F(StopTest, AllThreeSignalsAtOnceEndItOnceWithStatus0) {
  StartWithOpenPort();
  Settle();
  service->Signal(SIGTERM);
  service->Signal(SIGHUP);
  service->Signal(SIGINT);
  EXPECT_EQ("exit 0", service->WaitForExit());
  EXPECT_EQ(Service::Errors().find("終了"), Service::Errors().rfind("終了"));
  EXPECT_EQ(1U, LogFile::Count(kStopped));
}

// Reads what comes from `descriptor`, which does not block, until `text` was in it.
bool Gives(int descriptor, const std::string& text) {
  std::string all;
  return Eventually([&] {
    char piece[4096];
    const ssize_t count = read(descriptor, piece, sizeof piece);
    all.append(piece, static_cast<size_t>(std::max<ssize_t>(count, 0)));
    return all.find(text) != std::string::npos;
  });
}

// Standard output is a pipe that holds the first line and not the second: the service waits in the
// middle of Listen, with its peer accepted, until the test reads. It gives a reader a second.
TEST_F(StopTest, AStopRequestedBeforeTheFirstLinkIsForgotten) {
  int pipe[2] = {};
  ASSERT_EQ(0, pipe2(pipe, O_CLOEXEC));
  const auto capacity = static_cast<size_t>(fcntl(pipe[1], F_SETPIPE_SZ, 4096));
  const std::string filling(
      capacity - std::string_view("[LISTEN]IP:127.0.0.1(PORT:60004)\n").size(), '.');
  ASSERT_EQ(static_cast<ssize_t>(filling.size()), write(pipe[1], filling.data(), filling.size()));
  service = std::make_unique<Service>(Service::Session::kInherited, pipe[1]);
  const Relay first;
  ASSERT_TRUE(Eventually([&] { return service->Sockets() == 2 && service->IsIdle(); }));
  service->Signal(SIGTERM);
  ASSERT_TRUE(LogFile::Shows(kStopRequested));

  // The stop has closed the link, which counts as one that broke. Until the service listens again
  // its old socket takes a peer, too.
  ASSERT_EQ(0, fcntl(pipe[0], F_SETFL, O_NONBLOCK));
  ASSERT_TRUE(Gives(pipe[0], "[ACCEPT]IP:127.0.0.1\n[LISTEN]"));
  relay = std::make_unique<Relay>();
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
  EXPECT_EQ("exit 0", Stop(SIGTERM));
  EXPECT_EQ(2U, LogFile::Count(kStopRequested));
  (void)close(pipe[0]);
  (void)close(pipe[1]);
}

}  // namespace
