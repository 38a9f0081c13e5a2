// SPDX-License-Identifier: MIT
// Faults of the standard streams: closed, or pipes that nobody reads.
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <thread>

#include "faults/FaultTest.h"
#include "support/Terminal.h"

namespace {

constexpr const char* kPipe = "/tmp/e2e/pipe";

// Its lines may be nowhere, so it is not asked what it has printed.
void LinkUnseen(FaultTest& test) {
  test.relay = std::make_unique<Relay>();
  ASSERT_TRUE(test.relay->IsConnected());
  ASSERT_EQ(Wire(kFenceReply), test.relay->Answer(kFence));
}

void OpenUnseen(FaultTest& test) {
  LinkUnseen(test);
  test.device = std::make_unique<Device>();
  ASSERT_EQ(Wire(kPort0Opened), test.relay->Answer(kOpenPort0));
}

void ConverseUnseen(FaultTest& test) {
  OpenUnseen(test);
  test.ExpectDataBothWays();
  EXPECT_EQ(Wire(kAdapterOpened), test.relay->Answer(kOpenAdapter));
}

void MakePipe() { Shell(std::string("mkfifo ") + kPipe); }

// The pipe that the starter opens; the test holds its reading end and reads nothing.
class Pipe {
 public:
  Pipe() {
    if (!std::filesystem::exists(kPipe)) {
      MakePipe();
    }
    end = open(kPipe, O_RDWR | O_NONBLOCK | O_CLOEXEC);
    (void)fcntl(end, F_SETPIPE_SZ, 4096);
  }
  ~Pipe() { (void)close(end); }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  void Fill() const {
    while (write(end, ".", 1) == 1) {
    }
  }

  // One byte, when there is one.
  void Read() const {
    char byte = 0;
    (void)!read(end, &byte, 1);
  }

 private:
  int end;
};

void ExpectAStop(FaultTest& test, const std::string& end) {
  test.Settle();
  EXPECT_EQ(end, test.StopAtOnce(SIGTERM));
}

constexpr const char* kTerminal = "/tmp/e2e/terminal";

// More lines than the terminal holds, and nobody looks at it.
void StopWhileItsLogStandsInATerminal(FaultTest& test) {
  const Terminal terminal;
  ASSERT_EQ(0, symlink(terminal.Node().c_str(), kTerminal));
  test.StartAs();
  LinkUnseen(test);
  for (int i = 0; i < 400; ++i) {
    ASSERT_EQ(Wire(kFenceReply), test.relay->Answer(kFence)) << i;
  }
  ExpectAStop(test, "exit 0");
}

// The pipe is full when the service starts: it listens, and cannot say so.
void StopWhileItCannotSayThatItListens(FaultTest& test) {
  const Pipe pipe;
  pipe.Fill();
  test.StartAs();
  ASSERT_TRUE(LogFile::Shows(kStarted));
  ASSERT_TRUE(Eventually([&] { return test.service->Sockets() == 1; }));
  ExpectAStop(test, "exit 255");
}

void StopWhileItCannotSayThatAPortIsOpen(FaultTest& test) {
  const Pipe pipe;
  test.StartAs();
  LinkUnseen(test);
  pipe.Fill();
  test.device = std::make_unique<Device>();
  test.relay->Sends(kOpenPort0);
  ASSERT_TRUE(Eventually([&] { return test.service->Holds(test.device->Node()); }));
  ExpectAStop(test, "exit 0");
}

void StopWhileItCannotShowWhatItReceived(FaultTest& test) {
  const Pipe pipe;
  test.StartAs();
  OpenUnseen(test);
  pipe.Fill();
  ASSERT_TRUE(test.device->Sends("A"));
  ExpectAStop(test, "exit 0");
}

void StopWhileItCannotWriteItsExitText(FaultTest& test) {
  const Pipe pipe;
  test.StartAs();
  LinkUnseen(test);
  pipe.Fill();
  ExpectAStop(test, "exit 0");
}

// Its supervisor starts it again only when it has ended.
void AbortWhileItCannotSayWhy(FaultTest& test) {
  const Pipe pipe;
  test.StartAs();
  LinkUnseen(test);
  pipe.Fill();
  test.relay->Sends("0008 02 01 0000 0000");  // no machine has an adapter with these ids
  EXPECT_EQ("signal " + std::to_string(SIGABRT), test.service->WaitForExit());
}

void ExpectForwardingAndAStop(FaultTest& test) {
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(test.device->Sends("A"));
    ASSERT_EQ(Wire(kReceivedA), test.relay->NextPacket());
  }
  ExpectAStop(test, "exit 0");
}

void ForwardWhileItCannotShowWhatItReceived(FaultTest& test) {
  const Pipe pipe;
  test.StartAs();
  OpenUnseen(test);
  pipe.Fill();
  ExpectForwardingAndAStop(test);
}

// The reader comes when the service runs, and then does not read.
void ForwardToAReaderThatCameLate(FaultTest& test) {
  MakePipe();
  test.StartAs();
  OpenUnseen(test);
  const Pipe pipe;
  pipe.Fill();
  ExpectForwardingAndAStop(test);
}

// At this pace the dump takes minutes; a stop does not wait for it.
void StopWhileADumpIsReadSlowly(FaultTest& test) {
  const Pipe pipe;
  test.StartAs();
  OpenUnseen(test);
  pipe.Fill();
  std::jthread reader([&pipe](const std::stop_token& stop) {
    while (!stop.stop_requested()) {
      pipe.Read();
      std::this_thread::sleep_for(std::chrono::milliseconds(50));  // deliberate: the reader's pace
    }
  });
  ASSERT_TRUE(test.device->Sends("A"));
  ExpectAStop(test, "exit 0");
}

constexpr const char* kNoStreams = "exec \"$@\" <&- >&- 2>&-";
constexpr const char* kFullOutput = "exec \"$@\" >/dev/full";
constexpr const char* kFullError = "exec \"$@\" 2>/dev/full";
constexpr const char* kPipeOutput = "exec \"$@\" >/tmp/e2e/pipe";
constexpr const char* kTerminalLog = "unset KXLOGGER_FILE; exec \"$@\" 2>/tmp/e2e/terminal";
constexpr const char* kPipeError = "exec \"$@\" 2>/tmp/e2e/pipe";
// Open already, and with rights that do not let the service open it again: as another user's.
constexpr const char* kForeignPipe =
    "exec 2>/tmp/e2e/pipe; chmod 0 /tmp/e2e/pipe; "
    "exec setpriv --bounding-set=-all --inh-caps=-all -- \"$@\"";
constexpr const char* kPipeAndBlockedSignals =
    "exec env --block-signal=ABRT,ALRM \"$@\" 2>/tmp/e2e/pipe";
constexpr const char* kPipeWithoutReader =
    "exec 3<>/tmp/e2e/pipe 2>/tmp/e2e/pipe 3>&-; exec \"$@\"";

// clang-format off
const FaultRow kStreamRows[] = {
    // name                   state             start        happens                              log  outcome
    {"NoStandardStreams",     State::kStarting, kNoStreams,  ConverseUnseen,                      {}, Outcome::kGoesOn},
    {"OutputOnAFullDisk",     State::kStarting, kFullOutput, ConverseUnseen,                      {}, Outcome::kGoesOn},
    {"ErrorOnAFullDisk",      State::kPortOpen, kFullError,  [](FaultTest& test) { test.ExpectDataBothWays(); }, {}, Outcome::kGoesOn},
    {"StopWithTheListenLine", State::kAbsent,   kPipeOutput, StopWhileItCannotSayThatItListens,   {}, Outcome::kEndsWith255},
    {"StopWithTheOpenLine",   State::kAbsent,   kPipeOutput, StopWhileItCannotSayThatAPortIsOpen, {}, Outcome::kEndsWith0},
    {"StopWithTheHexDump",    State::kAbsent,   kPipeError,  StopWhileItCannotShowWhatItReceived, {}, Outcome::kEndsWith0},
    {"StopWithTheExitText",   State::kAbsent,   kPipeError,  StopWhileItCannotWriteItsExitText,   {}, Outcome::kEndsWith0},
    {"StopWithTheLogLine",    State::kAbsent,   kTerminalLog, StopWhileItsLogStandsInATerminal,   {}, Outcome::kEndsWith0},
    {"ForeignPipeWithTheHexDump", State::kAbsent, kForeignPipe, ForwardWhileItCannotShowWhatItReceived, {}, Outcome::kEndsWith0},
    {"ForeignPipeWithTheExitText", State::kAbsent, kForeignPipe, StopWhileItCannotWriteItsExitText, {}, Outcome::kEndsWith0},
    {"AbortWithItsReason",    State::kAbsent,   kPipeError,  AbortWhileItCannotSayWhy,            {}, Outcome::kShown},
    {"AbortWithItsSignalsBlocked", State::kAbsent, kPipeAndBlockedSignals, AbortWhileItCannotSayWhy, {}, Outcome::kShown},
    {"PipeWhoseReaderComesLate", State::kAbsent, kPipeWithoutReader, ForwardToAReaderThatCameLate, {}, Outcome::kEndsWith0},
    {"StopBehindASlowReader", State::kAbsent,   kPipeError,  StopWhileADumpIsReadSlowly,          {}, Outcome::kEndsWith0},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Stream, FaultTable, testing::ValuesIn(kStreamRows), NameOf<FaultRow>);

}  // namespace
