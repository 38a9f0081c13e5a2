// SPDX-License-Identifier: MIT
// What the played service answers, without a link: packets in, packets out. That the real one gives
// the same is shown where both are played.
#include <gtest/gtest.h>

#include "e2e/support/Wire.h"
#include "serve/PlayedService.h"

namespace {

using Kind = PlayedService::Effect::Kind;

constexpr const char* kOpenUart = "0014 01 02 000E '#PhysicalPort0'";
constexpr const char* kCloseUart = "0014 02 02 000E '#PhysicalPort0'";
constexpr const char* kOpenUsb = "0015 01 02 000F '#USBSerialPort0'";

class PlayedServiceTest : public testing::Test {
 protected:
  PlayedService::Effect Take(const std::string& text) {
    const std::vector<uint8_t> bytes = WireBytes(text);
    return service.Take(std::string(bytes.begin(), bytes.end()));
  }
  std::string Reply(const std::string& text) { return HexOf(Take(text).reply); }

  PlayedService service;
};

TEST_F(PlayedServiceTest, AnswersOpenAndCloseOfAPort) {
  service.Plug("#PhysicalPort0", "");
  EXPECT_EQ(Wire("0016 01 02 000E '#PhysicalPort0' 0000"), Reply(kOpenUart));
  EXPECT_TRUE(service.IsOpen("#PhysicalPort0"));
  EXPECT_EQ(Wire("0016 01 02 000E '#PhysicalPort0' 0003"), Reply(kOpenUart));
  EXPECT_EQ(Wire("0016 02 02 000E '#PhysicalPort0' 0000"), Reply(kCloseUart));
  EXPECT_EQ(Wire("0016 02 02 000E '#PhysicalPort0' 0002"), Reply(kCloseUart));
}

// The UART's node is missing, while an adapter's name leads nowhere.
TEST_F(PlayedServiceTest, APortWithoutADeviceCannotBeOpened) {
  EXPECT_EQ(Wire("0016 01 02 000E '#PhysicalPort0' 0004"), Reply(kOpenUart));
  EXPECT_EQ(Wire("0017 01 02 000F '#USBSerialPort0' 0002"), Reply(kOpenUsb));
  EXPECT_EQ(Wire("0009 01 02 0001 'X' 0002"), Reply("0007 01 02 0001 'X'"));
}

TEST_F(PlayedServiceTest, APortWhoseDeviceGoesStaysOpenAndDropsData) {
  service.Plug("#USBSerialPort0", "0403:6001");
  (void)Take(kOpenUsb);
  service.Unplug("#USBSerialPort0");
  const char* const data = "0017 04 02 000F '#USBSerialPort0' 01 01 0001 41";
  EXPECT_EQ(Kind::kDropped, Take(data).kind);
  EXPECT_EQ(Wire("0017 01 02 000F '#USBSerialPort0' 0003"), Reply(kOpenUsb));
  service.Plug("#USBSerialPort0", "0403:6001");
  EXPECT_EQ(Kind::kData, Take(data).kind);
}

TEST_F(PlayedServiceTest, DataOfAllBlocksAreForThePortThatIsOpen) {
  service.Plug("#PhysicalPort0", "");
  const char* const data = "001D 04 02 000E '#PhysicalPort0' 02 07 0001 41 FF 0001 42";
  EXPECT_EQ(Kind::kDropped, Take(data).kind);
  (void)Take(kOpenUart);
  const PlayedService::Effect effect = Take(data);
  EXPECT_EQ(Kind::kData, effect.kind);
  EXPECT_EQ("#PhysicalPort0", effect.port);
  EXPECT_EQ("AB", effect.data);
  EXPECT_EQ("", effect.reply);
}

TEST_F(PlayedServiceTest, TheNumberedFormReachesNoPort) {
  service.Plug("#USBSerialPort0", "0403:6001");
  EXPECT_EQ(Wire("000A 01 01 0403 6002 0002"), Reply("0008 01 01 0403 6002"));
  EXPECT_EQ(Wire("000A 02 01 0403 6001 0002"), Reply("0008 02 01 0403 6001"));
  EXPECT_EQ(Kind::kDropped, Take("0009 04 01 0403 6001 00").kind);
  const PlayedService::Effect effect = Take("0009 04 01 0403 6002 00");
  EXPECT_EQ(Kind::kDies, effect.kind);
  EXPECT_EQ("0403:6002", effect.port);
  service.Unplug("#USBSerialPort0");
  EXPECT_EQ(Kind::kDies, Take("0008 02 01 0403 6001").kind);
}

TEST_F(PlayedServiceTest, AMalformedPacketIsNotAnswered) {
  EXPECT_EQ(Kind::kRefused, Take("0007 03 02 0001 'X'").kind);
  EXPECT_EQ("", Reply("0008 02 02 0001 'X' 00"));
}

// One each, in their order; behind them all is as it was.
TEST_F(PlayedServiceTest, AStatusThatIsProvokedAnswersOneCommandAndChangesNothing) {
  service.Plug("#PhysicalPort0", "");
  service.Answer("#PhysicalPort0", 4);
  service.Answer("#PhysicalPort0", 3);
  service.Answer("#PhysicalPort0", 5);
  EXPECT_EQ(Wire("0016 01 02 000E '#PhysicalPort0' 0004"), Reply(kOpenUart));
  EXPECT_EQ(Wire("0016 01 02 000E '#PhysicalPort0' 0003"), Reply(kOpenUart));
  EXPECT_FALSE(service.IsOpen("#PhysicalPort0"));
  EXPECT_EQ(Wire("0016 01 02 000E '#PhysicalPort0' 0000"), Reply(kOpenUart));
  EXPECT_EQ(Wire("0016 02 02 000E '#PhysicalPort0' 0005"), Reply(kCloseUart));
  EXPECT_TRUE(service.IsOpen("#PhysicalPort0"));
  EXPECT_EQ(Wire("0016 02 02 000E '#PhysicalPort0' 0000"), Reply(kCloseUart));
}

TEST_F(PlayedServiceTest, BuildsNotificationsOfBothForms) {
  EXPECT_EQ(Wire("001A 04 02 000E '#PhysicalPort0' 01 02 0002 0D0A"),
            HexOf(PlayedService::Notification("#PhysicalPort0", "\r\n")));
  EXPECT_EQ(Wire("000E 04 01 0001 0002 01 02 0002 0D0A"),
            HexOf(PlayedService::NumberedNotification("0001:0002", "\r\n")));
}

}  // namespace
