// SPDX-License-Identifier: MIT
// Programs that know nothing of the service use its port through relayctl. Where the device's side
// is a program too, two pseudo-terminals of socat are the line.
#include <filesystem>
#include <random>

#include "relayctl/RelayctlTest.h"

namespace {

namespace fs = std::filesystem;

class OtherProgramsTest : public RelayctlTest {
 protected:
  // Starts pty, and waits until it has the port.
  void StartPortOnALine() {
    ASSERT_NO_FATAL_FAILURE(StartLine());
    StartPty();
    ASSERT_TRUE(pty->Prints(kLink)) << pty->Output();
  }

  // A megabyte of everything, with runs of the bytes that transfers treat specially.
  static std::string Payload() {
    std::mt19937 random(20240229);
    std::string bytes;
    while (bytes.size() < size_t{1} << 20) {
      const auto byte = static_cast<char>(random());
      bytes.append(random() % 64 == 0 ? 20 : 1,
                   random() % 8 == 0 ? "\x11\x13\x18\x10"[random() % 4] : byte);
    }
    bytes.resize(size_t{1} << 20);
    return bytes;
  }

  // A program whose standard streams are a port, by relayctl pipe.
  static std::string Through(const std::string& program) {
    return "socat EXEC:\"" + program + "\",pipes EXEC:\"relayctl pipe \\\\#PhysicalPort0\",pipes";
  }

  // Runs a sender and a receiver, and compares what came with what was sent.
  static void ExpectTransfer(const std::string& sender, const std::string& receiver) {
    const std::string payload = Payload();
    workplace::WriteWhole("/tmp/e2e/payload", payload);
    fs::create_directory("/tmp/e2e/in");
    Background receiving("sh -c " + Quoted("cd /tmp/e2e/in && exec " + receiver));
    Background sending("sh -c " + Quoted("cd /tmp/e2e && exec " + sender));
    EXPECT_EQ("exit 0", sending.WaitForExit()) << sending.Output();
    EXPECT_EQ("exit 0", receiving.WaitForExit()) << receiving.Output();
    EXPECT_TRUE(payload == workplace::ReadWhole("/tmp/e2e/in/payload"));
    fs::remove_all("/tmp/e2e/in");
  }
};

// At its end sz drains its terminal and then flushes it. Draining a pseudo-terminal waits for
// nobody, so the kernel may throw the last two bytes away, for which rz then waits half a minute:
// sz gets pipes, and socat writes to the terminal.
std::string SendOn(const char* terminal) {
  return std::string("socat EXEC:\"sz --quiet --binary payload\",pipes ") + terminal +
         ",raw,echo=0";
}

std::string ReceiveOn(const char* terminal) {
  return std::string("rz --quiet --binary --overwrite <") + terminal + " >" + terminal;
}

TEST_F(OtherProgramsTest, ZmodemSendsAMegabyteThroughPty) {
  ASSERT_NO_FATAL_FAILURE(StartPortOnALine());
  ExpectTransfer(SendOn(kLink), ReceiveOn(kFar));
}

TEST_F(OtherProgramsTest, ZmodemReceivesAMegabyteThroughPty) {
  ASSERT_NO_FATAL_FAILURE(StartPortOnALine());
  ExpectTransfer(SendOn(kFar), ReceiveOn(kLink));
}

// The port's end of the transfer is the program's own standard streams.
TEST_F(OtherProgramsTest, ZmodemSendsAMegabyteThroughPipe) {
  ASSERT_NO_FATAL_FAILURE(StartLine());
  ExpectTransfer(Through("sz --quiet --binary payload"), ReceiveOn(kFar));
}

TEST_F(OtherProgramsTest, ZmodemReceivesAMegabyteThroughPipe) {
  ASSERT_NO_FATAL_FAILURE(StartLine());
  ExpectTransfer(SendOn(kFar), Through("rz --quiet --binary --overwrite"));
}

}  // namespace
