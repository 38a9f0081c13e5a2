// SPDX-License-Identifier: MIT
// What docs/operations.md shows of status, each situation produced for real.
#include <filesystem>
#include <utility>

#include "recordings/Examples.h"
#include "relayctl/StatusSituation.h"

namespace {

// What differs from one machine and moment to the next: where the service, its files and its relay
// service are, numbers of processes, times, spans, and figures that go on.
std::string Steady(std::string text) {
  const std::string programs = std::filesystem::read_symlink("/proc/self/exe").parent_path();
  const std::pair<std::string, std::string> kVariable[] = {
      {programs + "/", "/usr/sbin/"},
      {"/tmp/e2e/vost.conf", "/etc/vost.conf"},
      {"/tmp/e2e/log", "/var/log/serial-port-handler/log"},
      {"RelayctlDoctorT", "relay-service"},
      {" of root since", " of relay since"},
      {"process [0-9]+", "process N"},
      {"([0-9]{4}-[0-9]{2}-[0-9]{2} )?[0-9]{2}:[0-9]{2}:[0-9]{2}", "TIME"},
      {"[0-9]+\\.[0-9] s\\b", "SPAN"},
      {"[0-9]+ (d|h|min|s)( [0-9]+ (h|min|s))?\\b", "SPAN"},
      {"[0-9]+\\.[0-9] (%|MiB)", "FIGURE"},
      {"[0-9]+ of [0-9]+\n", "FIGURE\n"},
      {"[0-9]+ (bytes wait for it|bytes from it|bytes received)", "FIGURE $1"},
      {"[0-9]{3,} wait", "FIGURE wait"},
  };
  for (const auto& [pattern, instead] : kVariable) {
    text = std::regex_replace(text, std::regex(pattern), instead);
  }
  return text;
}

class StatusDocTest : public StatusSituation {
 protected:
  StatusDocTest() { InstallAsPackage("1.0.0", Program()); }

  static void ExpectShown(const std::string& situation, int status) {
    for (const Example& example : ReadExamples(SPH_OPERATIONS)) {
      if (example.kind == "status" && example.name == situation) {
        const Outcome outcome = RunShell("relayctl status");
        EXPECT_EQ(Steady(example.text), Steady(outcome.output)) << outcome.output;
        EXPECT_EQ(status, outcome.status);
        return;
      }
    }
    FAIL() << "the document does not show " << situation;
  }

  // With a USB port open beside #PhysicalPort0.
  void StartWithTwoPorts() {
    configuration.Port("#USBSerialPort0", "9600 8 none 1 none");
    udev.AddAdapterAtPort(0, "/dev/ttyUSB0");
    adapter = std::make_unique<Device>("/dev/ttyUSB0");
    StartWithOpenPort();
    ASSERT_EQ(Wire("0017 01 02 000F '#USBSerialPort0' 0000"),
              relay->Answer("0015 01 02 000F '#USBSerialPort0'"));
    ASSERT_TRUE(device->Sends("23.5 C\r\n"));
    EXPECT_NE("nothing", relay->NextPacket());
    Settle();  // also the second port's thread has begun
  }

  std::unique_ptr<Device> adapter;
};

TEST_F(StatusDocTest, Healthy) {
  StartWithTwoPorts();
  ExpectShown("healthy", 0);
}

TEST_F(StatusDocTest, AnAdapterIsUnplugged) {
  StartWithTwoPorts();
  adapter->Unplug();
  udev.Clear();
  ASSERT_TRUE(LogFile::Shows(
      "1 SerialPortHandler SerialPort.cpp 4 Close serial device. [Port /dev/ttyUSB0]"));
  ExpectShown("unplugged", 1);
}

TEST_F(StatusDocTest, TheRelayServiceDoesNotRead) {
  StartWithOpenPort();
  Clog();
  ExpectShown("unread", 1);
}

TEST_F(StatusDocTest, NobodyIsConnected) {
  PlugAndStart();
  ExpectShown("alone", 1);
}

TEST_F(StatusDocTest, TheServiceHasFailed) {
  device = std::make_unique<Device>();
  WriteTool("systemctl",
            "echo LoadState=loaded\necho ActiveState=failed\necho SubState=failed\n"
            "echo Result=exit-code\necho ExecMainStatus=255\necho NRestarts=0");
  WriteTool("journalctl",
            "date -u '+%FT%T.000000Z 0 SerialPortHandler CommSocket.cpp:1 4 "
            "Failed to open the Socket connection for RelayService.'");
  ExpectShown("down", 2);
}

}  // namespace
