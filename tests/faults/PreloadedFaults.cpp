// SPDX-License-Identifier: MIT
// Faults of the C library's functions, made by libfaults.
#include <thread>

#include "faults/FaultTest.h"

namespace {

using std::chrono::milliseconds;

void OpenPort0(FaultTest& test) {
  test.device = std::make_unique<Device>();
  test.relay->Sends(kOpenPort0);
}

// The first open fails, the next one does not.
void OpenTwice(FaultTest& test) {
  OpenPort0(test);
  EXPECT_EQ(Wire(kPort0Failed), test.relay->NextPacket());
  test.relay->Sends(kOpenPort0);
  EXPECT_EQ(Wire(kPort0Opened), test.relay->NextPacket());
  test.ExpectDataBothWays();
}

void ReopensAndGoesOn(FaultTest& test) {
  ASSERT_TRUE(LogFile::Shows(kDeviceClosed));
  ASSERT_TRUE(Service::Prints("OPEN[/dev/ttyS2]\n", 2));
  test.ExpectDataBothWays();
}

size_t TimesIn(const std::string& text, const std::string& part) {
  size_t times = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++times;
  }
  return times;
}

// The device can be opened all the time, so there is no pause: each read that fails is a log line
// and a reopen, thousands in a second.
void ReadFailsForThreeSeconds(FaultTest& test) {
  SpoilCalls();
  std::this_thread::sleep_for(milliseconds(3000));  // the fault's own time
  SpareCalls();
  const auto closes = [] { return TimesIn(LogFile::Text(), "Close serial device. [Port "); };
  ASSERT_TRUE(
      Eventually([&] { return TimesIn(Service::Output(), "OPEN[/dev/ttyS2]\n") == closes() + 1; }));
  EXPECT_LT(100U, closes());
  EXPECT_EQ(FaultsMade(), closes());
  test.ExpectDataBothWays();
}

// The same bytes are offered again and again, without a pause, and nothing else is handled.
void WriteGivesNothingForAWhile(FaultTest& test) {
  SpoilCalls();
  test.relay->Sends(kWriteB);
  test.relay->Sends(kFence);
  ASSERT_TRUE(Eventually([] { return FaultsMade() > 2000; }));
  EXPECT_EQ(0U, LogFile::Count("3 SerialPortHandler SerialPortHandler.cpp 4 close command proc."));
  SpareCalls();
  EXPECT_EQ("B", test.device->Reads(1));
}

void StopWhileAWriteGivesNothing(FaultTest& test) {
  SpoilCalls();
  test.relay->Sends(kWriteB);
  ASSERT_TRUE(Eventually([] { return FaultsMade() > 100; }));
}

void WritesInSinglePieces(FaultTest& test) {
  test.relay->Sends("001E 04 02 000E '#PhysicalPort0' 01 01 0006 'ABCDEF'");
  EXPECT_EQ("ABCDEF", test.device->Reads(6));
}

void CloseFails(FaultTest& test) {
  EXPECT_EQ(Wire(kPort0Closed), test.relay->Answer(kClosePort0));
  EXPECT_EQ(Wire("0016 02 02 000E '#PhysicalPort0' 0002"), test.relay->Answer(kClosePort0));
  EXPECT_EQ(Wire(kPort0Opened), test.relay->Answer(kOpenPort0));
  test.ExpectDataBothWays();
}

// The line of the first port that was given up: from here on the second one is waited for.
void StopWhileStuckPortsAreDropped(FaultTest& test) {
  ASSERT_EQ(Wire(kAdapterOpened), test.relay->Answer(kOpenAdapter));
  test.relay->Leaves();
  ASSERT_TRUE(LogFile::Shows("1 LinuxThread Linux/LinuxThread.cpp 4 error: thread can not join"));
  EXPECT_EQ("exit 0", test.StopAtOnce(SIGTERM));
  EXPECT_EQ(Service::Output().find("[LISTEN]"), Service::Output().rfind("[LISTEN]"));
}

void OpenAdapter(FaultTest& test) { test.relay->Sends(kOpenAdapter); }

// The lost reply is the first one; the next one comes whole.
void SendFence(FaultTest& test) { test.relay->Sends(kFence); }

void LinkLater(FaultTest& test) { test.Link(); }

void ConnectAndLeave(FaultTest& test) {
  test.Link();
  test.relay->Leaves();
}

// Nobody receives what the relay sends.
void TheRelayIsNotHeard(FaultTest& test) {
  test.Link();
  test.relay->Sends(kFence);
}

void ThePortIsNotHeard(FaultTest& test) {
  OpenPort0(test);
  EXPECT_EQ(Wire(kPort0Opened), test.relay->NextPacket());
  ASSERT_TRUE(test.device->Sends("A"));
  test.relay->Sends(kWriteB);
  EXPECT_EQ("B", test.device->Reads(1));
}

const std::vector<const char*> kLinkLost = {kStarted, kLinkFailed};
const std::vector<const char*> kNoAdapter = {kNoDeviceFound};

// clang-format off
const FaultRow kRows[] = {
    // name                   state             start    faults                        happens                      packets             log            outcome
    {"ReadFailsOnce",         State::kPortOpen, nullptr, "read:EIO:2:/dev/pts",         ReopensAndGoesOn,            {},                 {},            Outcome::kGoesOn},
    {"ReadIsInterrupted",     State::kPortOpen, nullptr, "read:EINTR:2:/dev/pts",       ReopensAndGoesOn,            {},                 {},            Outcome::kGoesOn},
    {"ReadFailsFor3Seconds",  State::kPortOpen, nullptr, "read:EIO:@:/dev/pts",         ReadFailsForThreeSeconds,    {},                 {},            Outcome::kGoesOn},
    {"ReadGivesSingleBytes",  State::kPortOpen, nullptr, "read:short:1-:/dev/pts",      [](FaultTest& test) { test.ExpectDataBothWays(); }, {}, {},     Outcome::kGoesOn},
    {"WriteIsShort",          State::kPortOpen, nullptr, "write:short:1-5:/dev/pts",    WritesInSinglePieces,        {},                 {},            Outcome::kGoesOn},
    {"WriteGives0ForAWhile",  State::kPortOpen, nullptr, "write:0:@:/dev/pts",          WriteGivesNothingForAWhile,  {kFenceReply},      {},            Outcome::kGoesOn},
    {"WriteFailsForAWhile",   State::kPortOpen, nullptr, "write:EIO:@:/dev/pts",        WriteGivesNothingForAWhile,  {kFenceReply},      {},            Outcome::kGoesOn},
    {"StopWhilePortsAreStuck", State::kPortOpen, nullptr, "read:slow:1-:/dev/pts",     StopWhileStuckPortsAreDropped, {},               {kStopped},    Outcome::kEndsWith0},
    {"StopWhileWriteGives0",  State::kPortOpen, nullptr, "write:0:@:/dev/pts",          StopWhileAWriteGivesNothing, {},                 {},            Outcome::kStops},
    {"StopWhileWriteFails",   State::kPortOpen, nullptr, "write:EIO:@:/dev/pts",        StopWhileAWriteGivesNothing, {},                 {},            Outcome::kStops},
    {"OpenIsRefused",         State::kLinked,   nullptr, "open:EACCES:1:/dev/ttyS2",    OpenTwice,                   {},                 {kCannotOpenDevice}, Outcome::kGoesOn},
    {"FirstTcgetattrFails",   State::kLinked,   nullptr, "tcgetattr:EIO:1:/dev/pts",    OpenTwice,                   {},                 {kCannotOpenDevice}, Outcome::kGoesOn},
    {"CloseFails",            State::kPortOpen, nullptr, "close:EIO:1:/dev/pts",        CloseFails,                  {},                 {},            Outcome::kGoesOn},
    {"SystemFails",           State::kLinked,   nullptr, "system:EAGAIN:1-",            OpenAdapter,                 {kAdapterNotFound}, kNoAdapter,    Outcome::kGoesOn},
    {"FopenFails",            State::kLinked,   nullptr, "fopen:ENOMEM:1:/tmp/device",  OpenAdapter,                 {kAdapterNotFound}, kNoAdapter,    Outcome::kGoesOn},
    {"NoThreadForTheRelay",   State::kStarting,  nullptr, "pthread_create:EAGAIN:1",     TheRelayIsNotHeard,          {},                 {},            Outcome::kStops},
    {"NoThreadForThePort",    State::kLinked,   nullptr, "pthread_create:EAGAIN:2",     ThePortIsNotHeard,           {},                 {},            Outcome::kGoesOn},
    {"SocketFails",           State::kStarting,  nullptr, "socket:EMFILE:1",             nullptr,                     {},                 kLinkLost,     Outcome::kEndsWith255},
    {"BindFails",             State::kStarting,  nullptr, "bind:EADDRINUSE:1",           nullptr,                     {},                 kLinkLost,     Outcome::kEndsWith255},
    {"ListenFails",           State::kStarting,  nullptr, "listen:EADDRINUSE:1",         nullptr,                     {},                 kLinkLost,     Outcome::kEndsWith255},
    {"AcceptHasNoDescriptor", State::kStarting,  nullptr, "accept:EMFILE:1",             nullptr,                     {},                 kLinkLost,     Outcome::kEndsWith255},
    {"AcceptIsAborted",       State::kStarting,  nullptr, "accept:ECONNABORTED:1",       nullptr,                     {},                 kLinkLost,     Outcome::kEndsWith255},
    {"AcceptIsInterrupted",   State::kStarting,  nullptr, "accept:EINTR:1",              nullptr,                     {},                 kLinkLost,     Outcome::kEndsWith255},
    {"ReuseIsRefused",        State::kStarting,  nullptr, "setsockopt:EINVAL:1",         LinkLater,                   {},                 {},            Outcome::kGoesOn},
    {"SocketFailsLater",      State::kStarting,  nullptr, "socket:EMFILE:2",             ConnectAndLeave,             {},                 kLinkLost,     Outcome::kEndsWith255},
    {"BindFailsLater",        State::kStarting,  nullptr, "bind:EADDRINUSE:2",           ConnectAndLeave,             {},                 kLinkLost,     Outcome::kEndsWith255},
    {"AcceptFailsLater",      State::kStarting,  nullptr, "accept:EMFILE:2",             ConnectAndLeave,             {},                 kLinkLost,     Outcome::kEndsWith255},
    {"SendIsShort",           State::kLinked,   nullptr, "send:short:1-8",              SendFence,                   {kFenceReply},      {},            Outcome::kGoesOn},
    {"SendGives0",            State::kLinked,   nullptr, "send:0:1",                    SendFence,                   {},                 {},            Outcome::kGoesOn},
    {"SendFails",             State::kLinked,   nullptr, "send:EPIPE:1",                SendFence,                   {},                 {},            Outcome::kGoesOn},
    {"RecvIsShort",           State::kLinked,   nullptr, "recv:short:1-7",              SendFence,                   {kFenceReply},      {},            Outcome::kGoesOn},
    {"RecvIsReset",           State::kLinked,   nullptr, "recv:ECONNRESET:2",           SendFence,                   {},                 {},            Outcome::kListensAgain},
    {"RecvIsInterrupted",     State::kLinked,   nullptr, "recv:EINTR:2",                SendFence,                   {},                 {},            Outcome::kListensAgain},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Library, FaultTest, testing::ValuesIn(kRows), NameOf<FaultRow>);

}  // namespace
