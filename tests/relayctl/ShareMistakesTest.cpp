// SPDX-License-Identifier: MIT
// relayctl share with options that cannot be.
#include <filesystem>
#include <fstream>
#include <string>

#include "relayctl/RelayctlTest.h"

namespace {

namespace fs = std::filesystem;

class ShareMistakesTest : public RelayctlTest {
 protected:
  // Nobody listens where the service would be: what is told is told before it comes.
  static void ExpectRefused(const std::string& options, int status, const std::string& words) {
    const Outcome told = RunShell("timeout 20 relayctl share --listen 60010 " + options);
    EXPECT_EQ(status, told.status) << options;
    EXPECT_EQ("relayctl: " + words + "\n", told.output);
  }

  static std::string Pty(const std::string& path) { return "--pty '#PhysicalPort0=" + path + "'"; }
};

// The first one's path would lead to the second, and nobody could find the first.
TEST_F(ShareMistakesTest, APathForTwo) {
  ExpectRefused(Pty("/tmp/e2e/one") + " --pty '#USBSerialPort0=/tmp/e2e/../e2e/one'", 2,
                "--pty: /tmp/e2e/../e2e/one is the path of two");
}

// Else all peers would lose their link on the day on which the port opens.
TEST_F(ShareMistakesTest, ATerminalThatCannotBe) {
  ExpectRefused(Pty("/tmp/e2e/no/one"), 1,
                "--pty #PhysicalPort0: /tmp/e2e/no/one: No such file or directory");
  std::ofstream("/tmp/e2e/file") << "mine";
  ExpectRefused(Pty("/tmp/e2e/file"), 1, "--pty #PhysicalPort0: /tmp/e2e/file: File exists");
  EXPECT_EQ("mine", workplace::ReadWhole("/tmp/e2e/file"));
}

TEST_F(ShareMistakesTest, AGroupThatWouldChangeNothing) {
  ExpectRefused("--group 4294967295", 2, "--group: there is no group \"4294967295\"");
}

}  // namespace
