// SPDX-License-Identifier: MIT
// Much data, in both directions.
#include <future>

#include "e2e/ServiceTest.h"
#include "support/Hex.h"

namespace {

class DataTest : public ServiceTest {};

// Ten megabytes, in which no piece is like another.
std::string ManyBytes() {
  constexpr size_t kCount = 10U << 20;
  std::string bytes(kCount, '\0');
  uint32_t state = 1;
  for (char& byte : bytes) {
    state = state * 1664525U + 1013904223U;
    byte = static_cast<char>(state >> 24);
  }
  return bytes;
}

TEST_F(DataTest, TenMegabytesReachTheDeviceUnchanged) {
  StartWithOpenPort();
  const std::string bytes = ManyBytes();
  const std::string head = Wire("A018 04 02 000E '#PhysicalPort0' 01 01 A000");
  const std::vector<uint8_t> headBytes = WireBytes(head);
  auto sending = std::async(std::launch::async, [&] {
    for (size_t at = 0; at < bytes.size(); at += 0xA000) {
      relay->SendsBytes(std::string(headBytes.begin(), headBytes.end()) + bytes.substr(at, 0xA000));
    }
  });
  EXPECT_TRUE(bytes == device->Reads(bytes.size()));
  sending.get();
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
}

TEST_F(DataTest, TenMegabytesReachTheRelayUnchanged) {
  StartWithOpenPort();
  const std::string bytes = ManyBytes();
  auto sending = std::async(std::launch::async, [&] { return device->Sends(bytes); });
  std::string received;
  while (received.size() < bytes.size()) {
    const std::string packet = relay->NextPacket();
    ASSERT_EQ(Wire("04 02 000E '#PhysicalPort0' 01 02"), packet.substr(4, 40)) << packet;
    const std::vector<uint8_t> data = FromHex(packet.substr(48));
    received.append(data.begin(), data.end());
  }
  EXPECT_TRUE(sending.get());
  EXPECT_TRUE(bytes == received);
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
}

}  // namespace
