// SPDX-License-Identifier: MIT
// What docs/operations.md tells of faults whose signs an operator has to know.
#include <csignal>

#include "e2e/ServiceTest.h"

namespace {

class OperationsTest : public ServiceTest {};

TEST_F(OperationsTest, AStopEndsAWriteThatIsOfferedAgainForAnAbsentAdapter) {
  StartWithOpenPort();
  // More than the line holds, so that the unplug finds the command under way.
  const std::string data(60000, 'd');
  relay->SendsBytes(std::string("\xEA\x78\x04\x02\x00\x0E#PhysicalPort0\x01\x01\xEA\x60", 24) +
                    data);
  EXPECT_EQ(1000U, device->Reads(1000).size());
  ASSERT_TRUE(Eventually([this] { return service->IsIdle(); }));  // the line takes no more
  device->Unplug();
  ASSERT_TRUE(Service::Prints(")port close\n"));
  relay->Sends(kFence);
  service->Signal(SIGTERM);
  EXPECT_EQ("exit 0", service->WaitForExit());
  EXPECT_EQ("closed", relay->NextPacket());  // the fence was never answered
}

}  // namespace
