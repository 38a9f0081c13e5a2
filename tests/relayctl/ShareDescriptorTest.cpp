// SPDX-License-Identifier: MIT
// relayctl share without a descriptor for all who come.
#include <filesystem>
#include <memory>
#include <string>

#include "relayctl/RelayctlTest.h"

namespace {

namespace fs = std::filesystem;

class ShareDescriptorTest : public RelayctlTest {};

// Those who are there go on, and share waits for a descriptor without taking the processor.
TEST_F(ShareDescriptorTest, NoDescriptorForOneMore) {
  ASSERT_NO_FATAL_FAILURE(PlugAndStart());
  const Background share("relayctl share --listen 60010");
  ASSERT_TRUE(share.Prints("listening for peers on")) << share.Output();
  constexpr uint16_t kShared = 60010;
  auto first = std::make_unique<Relay>(kShared);
  EXPECT_EQ(Wire(kPort0Opened), first->Answer(kOpenPort0));
  const fs::path own = "/proc/" + std::to_string(share.Pid());
  int next = 0;
  while (fs::exists(fs::symlink_status(own / "fd" / std::to_string(next)))) {
    ++next;
  }
  const std::string most = std::to_string(next) + ":" + std::to_string(next);
  const Outcome limited =
      RunShell("prlimit --pid " + std::to_string(share.Pid()) + " --nofile=" + most);
  ASSERT_EQ(0, limited.status) << limited.output;
  Relay second(kShared);
  second.Sends(kOpenPort0);
  EXPECT_TRUE(share.Prints("cannot take a peer: Too many open files; it has to wait"));
  EXPECT_TRUE(Eventually([&] {
    return workplace::ReadWhole(own / "stat").find(") S ") != std::string::npos;
  })) << "it does not sleep";
  EXPECT_EQ(Wire(kFenceReply), first->Answer(kFence));
  first.reset();
  EXPECT_EQ(Wire(kPort0Opened), second.NextPacket());
}

}  // namespace
