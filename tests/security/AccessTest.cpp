// SPDX-License-Identifier: MIT
// Who can reach the service, and what the programs that it runs can reach.
#include <algorithm>
#include <filesystem>
#include <vector>

#include "e2e/ServiceTest.h"
#include "relayctl/Shell.h"

namespace {

class AccessTest : public ServiceTest {};

// All listening TCP sockets, a line each. Each test has a network of its own, so none belongs to
// another program.
std::string Listeners() { return RunShell("ss -Hltn | awk '{ print $4 }'").output; }

TEST_F(AccessTest, ListensOn127001AndNowhereElse) {
  StartService();
  ASSERT_TRUE(Service::Prints("[LISTEN]IP:"));
  EXPECT_EQ("127.0.0.1:60004\n", Listeners());
  Link();
  EXPECT_EQ("127.0.0.1:60004\n", Listeners());
  EXPECT_EQ(2U, service->Sockets());  // that one and the relay's
}

// A program that connects on behalf of others, such as a web browser, is a peer: the first two
// bytes of its request are a length, and what comes behind so many bytes can be packets.
TEST_F(AccessTest, AnHttpRequestCanCarryCommands) {
  constexpr size_t kLengthThatPoSpells = 0x504F;
  StartLinked();
  std::string request = "POST / HTTP/1.1\r\nHost: 127.0.0.1:60004\r\n\r\n";
  request.resize(kLengthThatPoSpells, 'x');
  relay->SendsBytes(request);
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
  EXPECT_EQ(1U, LogFile::Count(kRefused));
}

std::vector<std::filesystem::path> DescriptorsOfPrograms(const std::string& word) {
  std::vector<std::filesystem::path> descriptors;
  std::error_code gone;
  for (const auto& process : std::filesystem::directory_iterator("/proc")) {
    if (workplace::ReadWhole(process.path() / "cmdline").find(word) == std::string::npos) {
      continue;
    }
    for (const auto& entry : std::filesystem::directory_iterator(process.path() / "fd", gone)) {
      descriptors.push_back(std::filesystem::read_symlink(entry.path(), gone));
    }
  }
  return descriptors;
}

TEST_F(AccessTest, TheSearchProgramInheritsNeitherSocketNorLine) {
  configuration.Port("#USBSerialPort0", "9600 8 none 1 none");
  StartWithOpenPort();
  UdevDatabase::WaitsFor("/tmp/e2e/go");
  relay->Sends("0015 01 02 000F '#USBSerialPort0'");
  ASSERT_TRUE(Eventually([] { return UdevDatabase::Runs() == 1; }));
  const auto descriptors = DescriptorsOfPrograms(std::string(workplace::kPrograms) + "/udevadm");
  EXPECT_NE(0, std::count(descriptors.begin(), descriptors.end(), "/tmp/deviceinfo.txt"));
  for (const std::string descriptor : descriptors) {
    EXPECT_FALSE(descriptor.starts_with("socket:")) << descriptor;
    EXPECT_NE(device->Node(), descriptor);
    EXPECT_NE(workplace::kLog, descriptor);
  }
  workplace::WriteWhole("/tmp/e2e/go", "");
  EXPECT_EQ(Wire("0017 01 02 000F '#USBSerialPort0' 0002"), relay->NextPacket());
}

}  // namespace
