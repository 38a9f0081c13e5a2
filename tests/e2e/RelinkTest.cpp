// SPDX-License-Identifier: MIT
// The relay leaves and comes back.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "e2e/ServiceTest.h"

namespace {

class RelinkTest : public ServiceTest {};

using std::chrono::milliseconds;

enum class Parting { kLeaves, kResets, kEndsSending };

class PartingTest : public ServiceTest, public testing::WithParamInterface<Parting> {
 protected:
  void RelayParts() {
    switch (GetParam()) {
      case Parting::kLeaves:
        return relay->Leaves();
      case Parting::kResets:
        return relay->Resets();
      case Parting::kEndsSending:
        return relay->EndsSending();
    }
  }
};

TEST_P(PartingTest, AllPortsAreClosedAndTheNextRelayStartsAfresh) {
  configuration.Port("#USBSerialPort0", "9600 8 none 1 none");
  udev.AddAdapterAtPort(0, "/dev/ttyUSB0");
  const Device adapter("/dev/ttyUSB0");
  StartWithOpenPort();
  ASSERT_EQ(Wire("0017 01 02 000F '#USBSerialPort0' 0000"),
            relay->Answer("0015 01 02 000F '#USBSerialPort0'"));
  RelayParts();
  EXPECT_TRUE(Eventually(
      [&] { return !service->Holds(device->Node()) && !service->Holds(adapter.Node()); }));
  Link();
  EXPECT_EQ(Wire("0016 02 02 000E '#PhysicalPort0' 0002"), relay->Answer(kClosePort0));
  EXPECT_EQ(Wire(kPort0Opened), relay->Answer(kOpenPort0));
  ASSERT_TRUE(device->Sends("A"));
  EXPECT_EQ(Wire("0019 04 02 000E '#PhysicalPort0' 01 02 0001 'A'"), relay->NextPacket());
}

std::string NameOfParting(const testing::TestParamInfo<Parting>& row) {
  switch (row.param) {
    case Parting::kLeaves:
      return "Leaves";
    case Parting::kResets:
      return "Resets";
    case Parting::kEndsSending:
      return "EndsSending";
  }
  return "";
}

INSTANTIATE_TEST_SUITE_P(Ways, PartingTest,
                         testing::Values(Parting::kLeaves, Parting::kResets, Parting::kEndsSending),
                         NameOfParting);

// One look of the supervision every 250 ms.
TEST_F(RelinkTest, ListensAgainAboutAQuarterOfASecondAfterTheRelayHasLeft) {
  StartLinked();
  const milliseconds taken = TimeOf([&] {
    relay->Leaves();
    EXPECT_TRUE(Service::Prints("[LISTEN]IP:", 2));
  });
  EXPECT_LT(taken, milliseconds(2000));
}

TEST_F(RelinkTest, ASecondRelayIsNeverAccepted) {
  StartLinked();
  Relay second;  // waits in the queue of the listening socket
  second.Sends(kFence);
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
  relay->Leaves();
  EXPECT_EQ("closed", second.NextPacket());
  Link();
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
  EXPECT_FALSE(Service::Output().ends_with("[ACCEPT]IP:127.0.0.1\n[ACCEPT]IP:127.0.0.1\n"));
}

TEST_F(RelinkTest, APeerWithAnotherAddressEndsTheProcessWith255) {
  StartService();
  Relay stranger(Relay::kDefaultPort, "127.0.0.2");
  EXPECT_EQ("exit 255", service->WaitForExit());
  EXPECT_EQ("closed", stranger.NextPacket());
  EXPECT_EQ("[LISTEN]IP:127.0.0.1(PORT:60004)\n[ACCEPT]IP:127.0.0.2\n", Service::Output());
  EXPECT_EQ((std::vector<std::string>{kStarted, kLinkFailed}), LogFile::Lines());
  EXPECT_EQ("", Service::Errors());
}

// A program that has the port already.
class Occupant {
 public:
  explicit Occupant(uint16_t port) : listening(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = inet_addr("127.0.0.1");
    EXPECT_EQ(0, bind(listening, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    EXPECT_EQ(0, listen(listening, 1));
  }
  ~Occupant() { (void)close(listening); }
  Occupant(const Occupant&) = delete;
  Occupant& operator=(const Occupant&) = delete;

 private:
  int listening;
};

TEST_F(RelinkTest, AnOccupiedPortEndsTheProcessWith255) {
  const Occupant occupant(60004);
  StartService();
  EXPECT_EQ("exit 255", service->WaitForExit());
  EXPECT_EQ((std::vector<std::string>{kStarted, kLinkFailed}), LogFile::Lines());
  EXPECT_EQ("", Service::Output() + Service::Errors());
}

TEST_F(RelinkTest, AnOccupiedPortAtTheRelinkEndsTheProcessWith255) {
  const Occupant occupant(2000);
  StartLinked();
  configuration.RelayPort("2000");
  relay->Leaves();
  EXPECT_EQ("exit 255", service->WaitForExit());
  EXPECT_EQ((std::vector<std::string>{kStarted, kLinkFailed}), LogFile::Lines());
  EXPECT_EQ("", Service::Errors());
}

// The relay reads nothing, so that the port's receive thread comes to a halt inside a send.
TEST_F(RelinkTest, ARelayThatReadNothingCanLeaveAndComeBack) {
  StartWithOpenPort();
  Clog();
  relay->Leaves();
  Link();
  EXPECT_EQ(Wire(kPort0Opened), relay->Answer(kOpenPort0));
}

}  // namespace
