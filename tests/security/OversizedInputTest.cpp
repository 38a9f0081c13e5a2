// SPDX-License-Identifier: MIT
// Packets of the largest size. Other large input: SystemFaults.cpp, LibvostTest.cpp.
#include "e2e/ServiceTest.h"

namespace {

class OversizedInputTest : public ServiceTest {};

TEST_F(OversizedInputTest, APortNameAsLongAsAPacketAllowsIsNoPort) {
  StartLinked();
  const std::string name(65529, 'n');
  relay->SendsBytes(std::string("\xFF\xFF\x01\x02\xFF\xF9", 6) + name);
  // The reply is two bytes longer than a length field can say: its own wraps round to 1.
  relay->Leaves();
  Link();
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
  EXPECT_EQ(0U, LogFile::Count(kRefused));
}

TEST_F(OversizedInputTest, ABlockThatFillsTheLongestPacketIsWrittenWhole) {
  StartWithOpenPort();
  const std::string data(65511, 'd');
  relay->SendsBytes(std::string("\xFF\xFF\x04\x02\x00\x0E#PhysicalPort0\x01\x01\xFF\xE7", 24) +
                    data);
  EXPECT_TRUE(data == device->Reads(data.size()));  // too long to be shown
  EXPECT_EQ(Wire(kPort0Closed), relay->Answer(kClosePort0));
}

}  // namespace
