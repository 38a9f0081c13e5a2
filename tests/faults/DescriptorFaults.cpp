// SPDX-License-Identifier: MIT
// Faults of the system: no descriptors left.
#include <sys/resource.h>

#include <memory>

#include "faults/FaultTest.h"

namespace {

// What it holds already it keeps; nothing more can be opened. The configuration comes first.
void NoDescriptorForAnOpen(FaultTest& test) {
  rlimit before{};
  ASSERT_EQ(0, prlimit(test.service->Pid(), RLIMIT_NOFILE, nullptr, &before));
  const rlimit few = {3, before.rlim_max};
  ASSERT_EQ(0, prlimit(test.service->Pid(), RLIMIT_NOFILE, &few, nullptr));
  test.device = std::make_unique<Device>();
  EXPECT_EQ(Wire("0016 01 02 000E '#PhysicalPort0' 0002"), test.relay->Answer(kOpenPort0));
  ASSERT_EQ(0, prlimit(test.service->Pid(), RLIMIT_NOFILE, &before, nullptr));
  EXPECT_EQ(Wire(kPort0Opened), test.relay->Answer(kOpenPort0));
}

void NoDescriptorForTheNextLink(FaultTest& test) {
  const rlimit few = {3, 3};
  ASSERT_EQ(0, prlimit(test.service->Pid(), RLIMIT_NOFILE, &few, nullptr));
  test.relay->Leaves();
}

void NoDescriptorForAReopen(FaultTest& test) {
  rlimit before{};
  ASSERT_EQ(0, prlimit(test.service->Pid(), RLIMIT_NOFILE, nullptr, &before));
  const rlimit few = {3, before.rlim_max};
  ASSERT_EQ(0, prlimit(test.service->Pid(), RLIMIT_NOFILE, &few, nullptr));
  test.device->Unplug();
  ASSERT_TRUE(LogFile::Shows(kDeviceClosed));  // only now is the port known to be closed
  test.device->Plug();
  test.relay->Sends(kWriteB);
  ASSERT_TRUE(LogFile::Shows(kSendFailed));
  ASSERT_EQ(0, prlimit(test.service->Pid(), RLIMIT_NOFILE, &before, nullptr));
  ASSERT_TRUE(Service::Prints("OPEN[/dev/ttyS2]\n", 2));
  test.ExpectDataBothWays();
}

constexpr const char* kFewFiles = "ulimit -n 5; exec \"$@\"";
constexpr const char* kNoConfiguration =
    "1 libvost Libvost.cpp 4 /tmp/e2e/vost.conf: Too many open files";

// clang-format off
const FaultRow kDescriptorRows[] = {
    // name                      state              start          happens                     log                  outcome
    {"NoDescriptorForAnOpen",    State::kLinked,    nullptr,       NoDescriptorForAnOpen,      {kNoConfiguration},  Outcome::kGoesOn},
    {"NoDescriptorForALink",     State::kStarting,  kFewFiles,     nullptr,                    {kLinkFailed},       Outcome::kEndsWith255},
    {"NoDescriptorForNextLink",  State::kLinked,    nullptr,       NoDescriptorForTheNextLink, {kLinkFailed},       Outcome::kEndsWith255},
    {"NoDescriptorForAReopen",   State::kPortOpen,  nullptr,       NoDescriptorForAReopen,     {kCannotOpenDevice}, Outcome::kGoesOn},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Descriptor, FaultTable, testing::ValuesIn(kDescriptorRows),
                         NameOf<FaultRow>);

}  // namespace
