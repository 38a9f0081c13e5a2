// SPDX-License-Identifier: MIT
// On which port the service waits for the relay.
#include <filesystem>

#include "e2e/ServiceTest.h"

namespace {

class RelayPortTest : public ServiceTest {};

TEST_F(RelayPortTest, ListensOn60004WithoutAConnectionRecord) {
  StartLinked();
  EXPECT_EQ("[LISTEN]IP:127.0.0.1(PORT:60004)\n[ACCEPT]IP:127.0.0.1\n", Service::Output());
}

TEST_F(RelayPortTest, ListensOn60004WithoutAConfigurationFile) {
  std::filesystem::remove(workplace::kConfiguration);
  StartLinked();
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
}

TEST_F(RelayPortTest, LooksThePortUpAfreshForEachLink) {
  StartLinked();
  configuration.RelayPort("1025");
  relay->Leaves();
  Link(1025);
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
  EXPECT_TRUE(Service::Prints("[LISTEN]IP:127.0.0.1(PORT:1025)\n"));
}

}  // namespace
