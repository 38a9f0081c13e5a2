// SPDX-License-Identifier: MIT
// How the service starts and how it ends.
#include <csignal>

#include "e2e/ServiceTest.h"

namespace {

TEST_F(ServiceTest, SigtermStopsALinkedServiceWithItsExitTextAndStatus0) {
  StartLinked();
  EXPECT_EQ("exit 0", Stop(SIGTERM));
  EXPECT_EQ("終了\n", Service::Errors());
}

}  // namespace
