// SPDX-License-Identifier: MIT
// relayctl serve by its keys, typed into a terminal window.
#include "relayctl/RelayctlTest.h"
#include "relayctl/TmuxWindow.h"

namespace {

class ServeKeysTest : public RelayctlTest {
 protected:
  void Serve() {
    window.Runs(std::string(workplace::kPrograms) +
                "/relayctl serve --port '#PhysicalPort0=echo' --port '#USBSerialPort3=echo'");
    ASSERT_TRUE(window.Shows("listening on 127.0.0.1:60004")) << window.Screen();
    relay = std::make_unique<Relay>();
    ASSERT_TRUE(relay->IsConnected());
  }

  // Presses the key and waits for what is told of it.
  void Press(const std::string& key, const std::string& told) const {
    window.Presses(key);
    EXPECT_TRUE(window.Shows(told)) << key << ":\n" << window.Screen();
  }

  const TmuxWindow window;
};

TEST_F(ServeKeysTest, ProvokeAtTheChosenPort) {
  ASSERT_NO_FATAL_FAILURE(Serve());
  Press("4", "#PhysicalPort0: the next open is answered with status 4");
  EXPECT_EQ(Wire("0016 01 02 000E '#PhysicalPort0' 0004"), relay->Answer(kOpenPort0));
  Press("Tab", "chosen is #USBSerialPort3");
  Press("u", "#USBSerialPort3: unplugged");
  EXPECT_EQ(Wire("0017 01 02 000F '#USBSerialPort3' 0002"),
            relay->Answer("0015 01 02 000F '#USBSerialPort3'"));
  Press("u", "#USBSerialPort3: plugged in");
  EXPECT_EQ(Wire("0017 01 02 000F '#USBSerialPort3' 0000"),
            relay->Answer("0015 01 02 000F '#USBSerialPort3'"));
  Press("h", "u    unplug the chosen port's device, or plug it in");
}

TEST_F(ServeKeysTest, LeaveTheTerminalAsItWas) {
  const std::string before = window.Settings();
  ASSERT_NO_FATAL_FAILURE(Serve());
  EXPECT_NE(before, window.Settings());
  window.Presses("q");
  EXPECT_TRUE(window.ShowsPrompt()) << window.Screen();
  EXPECT_EQ(before, window.Settings());
}

}  // namespace
