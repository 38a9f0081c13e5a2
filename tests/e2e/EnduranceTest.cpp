// SPDX-License-Identifier: MIT
// What a service that runs for months must not do: grow.
#include <iostream>

#include "e2e/ServiceTest.h"

namespace {

struct Holdings {
  size_t descriptors;
  size_t threads;
  size_t kilobytes;
};

std::ostream& operator<<(std::ostream& out, const Holdings& held) {
  return out << held.descriptors << " descriptors, " << held.threads << " threads, "
             << held.kilobytes << " kB";
}

class EnduranceTest : public ServiceTest {
 protected:
  Holdings Held() const {
    return {service->Descriptors(), service->Threads(), service->ResidentKilobytes()};
  }

  // Threads that have ended take a moment to be gone.
  void ExpectNoGrowth(const Holdings& before) {
    EXPECT_TRUE(Eventually([&] {
      return Held().descriptors == before.descriptors && Held().threads == before.threads;
    })) << "before: "
        << before << "; after: " << Held();
    EXPECT_LE(Held().kilobytes, before.kilobytes + kMemoryTolerance);
    std::cout << "before: " << before << "; after: " << Held() << std::endl;
  }

  // One leaked object per round would be more. Sanitizers keep freed memory back: theirs is larger,
  // and their own look for leaks stands in for it.
  static constexpr size_t kMemoryTolerance = SPH_MEMORY_TOLERANCE;  // kB
};

// Five hundred in all: each close waits up to 0.2 s for the receive thread, so that two processes
// share them.
TEST_F(EnduranceTest, TwoHundredAndFiftyOpensAndClosesByNameLeaveNothingBehind) {
  device = std::make_unique<Device>();
  StartLinked();
  const auto openAndClose = [this](int rounds) {
    for (int round = 0; round < rounds; ++round) {
      ASSERT_EQ(Wire(kPort0Opened), relay->Answer(kOpenPort0));
      ASSERT_EQ(Wire(kPort0Closed), relay->Answer(kClosePort0));
    }
  };
  openAndClose(10);
  const Holdings before = Held();
  openAndClose(250);
  ExpectNoGrowth(before);
}

TEST_F(EnduranceTest, TwoHundredAndFiftyOpensAndClosesOfAnAdapterLeaveNothingBehind) {
  configuration.Port("#USBSerialPort0", "9600 8 none 1 none");
  udev.AddAdapterAtPort(0, "/dev/ttyUSB0");
  device = std::make_unique<Device>("/dev/ttyUSB0");
  StartLinked();
  const auto openAndClose = [this](int rounds) {
    for (int round = 0; round < rounds; ++round) {
      ASSERT_EQ(Wire("0017 01 02 000F '#USBSerialPort0' 0000"),
                relay->Answer("0015 01 02 000F '#USBSerialPort0'"));
      ASSERT_EQ(Wire("0017 02 02 000F '#USBSerialPort0' 0000"),
                relay->Answer("0015 02 02 000F '#USBSerialPort0'"));
    }
  };
  openAndClose(10);
  const Holdings before = Held();
  openAndClose(250);
  ExpectNoGrowth(before);
}

TEST_F(EnduranceTest, TwoHundredRelaysLeaveNothingBehind) {
  StartLinked();
  const auto relink = [this](int rounds) {
    for (int round = 0; round < rounds && !HasFatalFailure(); ++round) {
      relay->Leaves();
      Link();
    }
  };
  relink(10);
  // An answer comes from the link's thread: it has begun.
  EXPECT_EQ(Wire("0016 02 02 000E '#PhysicalPort0' 0002"), relay->Answer(kClosePort0));
  const Holdings before = Held();
  relink(200);
  ExpectNoGrowth(before);
}

}  // namespace
