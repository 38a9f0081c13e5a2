// SPDX-License-Identifier: MIT
// A device that sends without end, and a reader that sleeps: relayctl holds a bounded amount, the
// rest waits in front of the service, and nothing is lost.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <thread>

#include "relayctl/RelayctlTest.h"

namespace {

constexpr const char* kOutput = "/tmp/e2e/standard-output";
constexpr const char* kInput = "/tmp/e2e/standard-input";

// Far more than what the buffers of the line and of the link take.
constexpr size_t kFlood = size_t{32} << 20;

// Of a stream that has no period of a power of two.
char ByteAt(size_t index) { return static_cast<char>(index % 251); }

std::string BytesFrom(size_t begin, size_t count) {
  std::string bytes(count, '\0');
  for (size_t i = 0; i < count; ++i) {
    bytes[i] = ByteAt(begin + i);
  }
  return bytes;
}

// What a program reads when it wakes up at last.
class Reader : public PtyProgram {
 public:
  using PtyProgram::PtyProgram;

  // Whether the first `count` bytes are those of the stream.
  bool ReadsStream(size_t count) const { return Reads(count) == BytesFrom(0, count); }

  // Whether `end`, which is not part of the stream, is among what has come.
  bool ReadsEnd(const std::string& end) const {
    std::string buffer(65536, '\0');
    const ssize_t size = read(Descriptor(), buffer.data(), buffer.size());
    return size > 0 && buffer.find(end) < static_cast<size_t>(size);
  }
};

class SlowReaderTest : public RelayctlTest {
 protected:
  // Has the device send the stream until the line takes no more, at most `most`. Gives how much it
  // took.
  size_t Flood(size_t most = kFlood) {
    size_t sent = 0;
    int halted = 0;
    EXPECT_TRUE(Eventually([&] {
      std::string piece = BytesFrom(sent, 4096);
      for (ssize_t count = 0; sent < most; piece = BytesFrom(sent, 4096)) {
        count = write(device->FarEnd(), piece.data(), piece.size());
        if (count <= 0) {
          break;
        }
        sent += static_cast<size_t>(count);
        halted = 0;
      }
      halted = service->IsIdle() ? halted + 1 : 0;
      return halted == 50;
    }));
    return sent;
  }

  // Waits until the service takes what the device sends. Opening the line, it throws away what came
  // before.
  static void WaitForTheOpenLine() { ASSERT_TRUE(Service::Prints("OPEN[/dev/ttyS2]\n")); }

  void ExpectBoundedFlood(const Background& program) {
    const size_t before = program.FromStatus("VmHWM");
    flood = Flood();
    EXPECT_LT(flood, kFlood) << "bytes: nobody stopped the device";
    EXPECT_LT(program.FromStatus("VmHWM") - before, size_t{SPH_MOST_MEMORY}) << "kB more";
  }

  // What is written still gets to the device while nobody reads what it sends.
  void ExpectWritten(const Reader& writer) const {
    const std::string bytes = BytesFrom(1, 300000);
    std::thread thread([&] { EXPECT_TRUE(writer.Writes(bytes)); });
    EXPECT_TRUE(bytes == device->Reads(bytes.size()));
    thread.join();
  }

  size_t flood = 0;
};

TEST_F(SlowReaderTest, PipeWaitsForTheReaderOfItsOutput) {
  ASSERT_NO_FATAL_FAILURE(PlugAndStart());
  ASSERT_EQ(0, mkfifo(kInput, 0600));
  ASSERT_EQ(0, mkfifo(kOutput, 0600));
  auto writer = std::make_unique<Reader>(kInput);
  Reader reader(kOutput);
  Background pipe(std::string("relayctl pipe ") + kPort + " <" + kInput + " >" + kOutput);
  ASSERT_NO_FATAL_FAILURE(WaitForTheOpenLine());
  ExpectBoundedFlood(pipe);
  ExpectWritten(*writer);
  EXPECT_TRUE(reader.ReadsStream(flood));
  writer.reset();
  EXPECT_EQ("exit 0", pipe.WaitForExit()) << pipe.Output();
}

// The answers that are under way have to be taken, and what comes with them has to be kept.
TEST_F(SlowReaderTest, PipeEndsWhenNeitherSideTakesAnything) {
  ASSERT_NO_FATAL_FAILURE(PlugAndStart());
  workplace::WriteWhole(kInput, BytesFrom(1, 300000));
  ASSERT_EQ(0, mkfifo(kOutput, 0600));
  const Reader sleeper(kOutput);
  Background pipe(std::string("relayctl pipe ") + kPort + " <" + kInput + " >" + kOutput);
  ASSERT_NO_FATAL_FAILURE(WaitForTheOpenLine());
  // Again and again: the line may take no more only because pipe does nothing for a while.
  std::atomic<bool> isOver = false;
  std::thread sender([&] {
    while (!isOver) {
      (void)Flood(size_t{17} << 20);
    }
  });
  EXPECT_EQ("exit 1", pipe.WaitForExit());
  isOver = true;
  EXPECT_EQ(
      "relayctl: #PhysicalPort0: neither the line nor standard output takes anything, and 16777216 "
      "received bytes wait\n",
      pipe.Output());
  sender.join();
}

class SlowPtyTest : public SlowReaderTest {
 protected:
  void StartPty() {
    ASSERT_NO_FATAL_FAILURE(PlugAndStart());
    RelayctlTest::StartPty();
    ASSERT_TRUE(pty->Prints(" -> /dev/pts/")) << pty->Output();
  }
};

TEST_F(SlowPtyTest, LosesNothing) {
  ASSERT_NO_FATAL_FAILURE(StartPty());
  Reader program(kLink);
  ExpectWritten(program);  // and relayctl has noticed the program
  ExpectBoundedFlood(*pty);
  ExpectWritten(program);
  EXPECT_TRUE(program.ReadsStream(flood));
  pty->Signal(SIGINT);
  EXPECT_EQ("exit 0", pty->WaitForExit());
  EXPECT_EQ(std::string::npos, pty->Output().find("thrown away")) << pty->Output();
}

TEST_F(SlowPtyTest, GoesOnWhenTheProgramLeaves) {
  ASSERT_NO_FATAL_FAILURE(StartPty());
  {
    const Reader sleeper(kLink);
    ExpectWritten(sleeper);
    ExpectBoundedFlood(*pty);
  }
  EXPECT_TRUE(device->Sends(BytesFrom(0, 1 << 20)));
  const Reader program(kLink);
  EXPECT_TRUE(
      Eventually([&] { return device->Sends("\xFE\xFF") && program.ReadsEnd("\xFE\xFF"); }));
  ExpectWritten(program);
}

TEST_F(SlowReaderTest, RecordLetsOneSideWaitForTheOther) {
  ASSERT_NO_FATAL_FAILURE(PlugAndStart());
  Background record("relayctl record --listen 60005 --output /tmp/e2e/recording");
  const Relay sleeper(60005);
  sleeper.Sends(kOpenPort0);
  ASSERT_NO_FATAL_FAILURE(WaitForTheOpenLine());
  ExpectBoundedFlood(record);
}

}  // namespace
