// SPDX-License-Identifier: MIT
// What a service that runs for months must not do: grow. It takes a minute of waiting, so it is
// part of the soak. That no descriptor and no thread is left, the simulation shows in a moment.
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
      return Held().descriptors <= before.descriptors && Held().threads <= before.threads;
    })) << "before: "
        << before << "; after: " << Held();
    EXPECT_LE(Held().kilobytes, before.kilobytes + kMemoryTolerance);
    std::cout << "before: " << before << "; after: " << Held() << std::endl;
  }

  // Three kilobytes lost in each round would be more.
  static constexpr size_t kMemoryTolerance = 512;  // kB
};

// Each close waits up to 0.2 s for the receive thread: two processes share the five hundred.
class OpenEnduranceTest : public EnduranceTest, public testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Each, OpenEnduranceTest, testing::Values("/dev/ttyS2", "/dev/ttyUSB0"));

TEST_P(OpenEnduranceTest, TwoHundredAndFiftyOpensAndClosesLeaveNothingBehind) {
  configuration.Port("#USBSerialPort0", "9600 8 none 1 none");
  udev.AddAdapterAtPort(0, "/dev/ttyUSB0");
  device = std::make_unique<Device>(GetParam());
  const bool isAdapter = device->Path() == "/dev/ttyUSB0";
  const std::string port = isAdapter ? "000F '#USBSerialPort0'" : "000E '#PhysicalPort0'";
  StartLinked();
  const auto openAndClose = [&](int rounds) {
    for (int round = 0; round < rounds; ++round) {
      for (const std::string command : {" 01 02 ", " 02 02 "}) {
        ASSERT_EQ(Wire((isAdapter ? "0017" : "0016") + command + port + " 0000"),
                  relay->Answer((isAdapter ? "0015" : "0014") + command + port));
      }
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
