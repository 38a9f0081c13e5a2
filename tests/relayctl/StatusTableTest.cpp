// SPDX-License-Identifier: MIT
// The rows of "It runs and does not work" in docs/operations.md, each produced for real, and what
// status and doctor say of it; those of a missing receive thread are in StatusLimitsTest.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <stop_token>
#include <thread>

#include "relayctl/StatusSituation.h"

namespace {

namespace fs = std::filesystem;

// A process that has the pipe open and does nothing, not even when it may go on.
class StoppedReader {
 public:
  StoppedReader() : process(fork()) {
    if (process == 0) {
      (void)raise(SIGSTOP);
      _exit(0);
    }
    EXPECT_EQ(process, waitpid(process, nullptr, WUNTRACED));
  }
  ~StoppedReader() {
    (void)kill(process, SIGKILL);
    (void)waitpid(process, nullptr, 0);
  }
  StoppedReader(const StoppedReader&) = delete;
  StoppedReader& operator=(const StoppedReader&) = delete;

 private:
  pid_t process;
};

class StatusTableTest : public StatusSituation {
 protected:
  // Only these ports are configured.
  static void ConfigureUsb(unsigned count) {
    std::string text = "[connect]\nport = 60004\n";
    for (unsigned port = 0; port < count; ++port) {
      text += "[#USBSerialPort" + std::to_string(port) +
              "]\nbaud=115200\ndata=8\nparity=none\nstop=1\nflow=none\n";
    }
    Configuration::Text(text);
  }

  void OpenUsb(unsigned port) {
    const std::string name = "02 000F '#USBSerialPort" + std::to_string(port) + "'";
    EXPECT_EQ(Wire("0017 01 " + name + " 0000"), relay->Answer("0015 01 " + name));
  }

  static std::string Lost(const std::string& node) {
    return "1 SerialPortHandler SerialPort.cpp 4 Close serial device. [Port " + node + "]";
  }

  static std::string Program() {
    return fs::read_symlink("/proc/self/exe").parent_path() / "SerialPortHandler";
  }
};

TEST_F(StatusTableTest, ADeviceThatTakesNothing) {
  StartWithOpenPort();
  StickWrite();
  BothSay("the device takes nothing");
}

TEST_F(StatusTableTest, ARelayServiceThatDoesNotRead) {
  StartWithOpenPort();
  Clog();
  BothSay("the relay service does not read");
}

TEST_F(StatusTableTest, AWriteThatIsOfferedAgainTakesAProcessor) {
  StartWithOpenPort();
  StickWrite();
  device->Unplug();
  BothSay("a core is taken");
}

TEST_F(StatusTableTest, ASearchThatHangs) {
  configuration.Port("#USBSerialPort0", "9600 8 none 1 none");
  UdevDatabase::Does("mkdir /tmp/e2e/first 2>/dev/null && sleep 1000");
  StartLinked();
  relay->Sends("0015 01 02 000F '#USBSerialPort0'");
  ASSERT_TRUE(Eventually([] { return fs::exists("/tmp/e2e/first"); }));
  BothSay("the search hangs");
}

TEST_F(StatusTableTest, ADumpFileThatIsAFifo) {
  configuration.Port("#USBSerialPort0", "9600 8 none 1 none");
  ASSERT_EQ(0, mkfifo("/tmp/deviceinfo.txt", 0600));
  StartLinked();
  relay->Sends("0015 01 02 000F '#USBSerialPort0'");
  relay->Sends(kFence);
  BothSay("the dump file is a FIFO");
}

TEST_F(StatusTableTest, AStreamThatNobodyReads) {
  std::array<int, 2> pipe{};
  ASSERT_EQ(0, pipe2(pipe.data(), O_CLOEXEC));
  device = std::make_unique<Device>();
  service = std::make_unique<Service>(Service::Session::kInherited, pipe[1]);
  relay = std::make_unique<Relay>();
  ASSERT_TRUE(relay->IsConnected());
  (void)close(pipe[1]);
  BothSay("parts of the dump are missing");
  {
    const StoppedReader reader;  // of its own copy
    (void)close(pipe[0]);
    BothSay("… and the reader is stopped");
  }
  BothSay("… or gone");
}

TEST_F(StatusTableTest, ADumpThatIsReadSlowly) {
  ASSERT_EQ(0, mkfifo("/tmp/e2e/dump", 0600));
  const int dump = open("/tmp/e2e/dump", O_RDWR | O_CLOEXEC);
  device = std::make_unique<Device>();
  const Background own("env KXLOGGER_FILE=/tmp/e2e/log " + Program() + " 2>/tmp/e2e/dump");
  ASSERT_TRUE(own.Prints("[LISTEN]IP:"));
  relay = std::make_unique<Relay>();
  ASSERT_EQ(Wire(kPort0Opened), relay->Answer(kOpenPort0));
  const std::jthread reader([&](const std::stop_token& isOver) {
    std::array<char, 200> bytes;
    while (!isOver.stop_requested()) {
      (void)!read(dump, bytes.data(), bytes.size());
      std::this_thread::sleep_for(std::chrono::milliseconds(100));  // the reader's speed
    }
  });
  const std::jthread sender([&](const std::stop_token& isOver) {
    const std::string piece(1000, 'x');
    while (!isOver.stop_requested()) {
      (void)!write(device->FarEnd(), piece.data(), piece.size());
      std::this_thread::sleep_for(std::chrono::milliseconds(2));  // the line's speed
    }
  });
  BothSay("the dump is read slowly");
  (void)close(dump);
}

TEST_F(StatusTableTest, AnAdapterThatComesBackUnderAnotherName) {
  ConfigureUsb(1);
  udev.AddAdapterAtPort(0, "/dev/ttyUSB0");
  device = std::make_unique<Device>("/dev/ttyUSB0");
  StartLinked();
  OpenUsb(0);
  device->Unplug();
  ASSERT_TRUE(LogFile::Shows(Lost("/dev/ttyUSB0")));
  udev.Clear();
  ExpectHas(StatusUntil("#USBSerialPort0 is open and its device is away since "),
            "needs attention: ");
  udev.AddAdapterAtPort(0, "/dev/ttyUSB1");
  const Device again("/dev/ttyUSB1");
  BothSay("the adapter came back under another name");
}

TEST_F(StatusTableTest, AHubThatLostItsPower) {
  ConfigureUsb(2);
  udev.AddAdapterAtPort(0, "/dev/ttyUSB0");
  udev.AddAdapterAtPort(1, "/dev/ttyUSB1");
  Device first("/dev/ttyUSB0");
  Device second("/dev/ttyUSB1");
  StartLinked();
  OpenUsb(0);
  OpenUsb(1);
  first.Unplug();
  second.Unplug();
  ASSERT_TRUE(LogFile::Shows(Lost("/dev/ttyUSB0")) && LogFile::Shows(Lost("/dev/ttyUSB1")));
  second.Plug();
  first.Plug();
  ASSERT_TRUE(Service::Prints("OPEN[/dev/ttyUSB0]\n", 2) &&
              Service::Prints("OPEN[/dev/ttyUSB1]\n", 2));
  BothSay("ports have each other's lines");
  const std::string said = Status(1);
  ExpectHas(said, "/dev/ttyUSB0");
  ExpectHas(said, "/dev/ttyUSB1");
}

TEST_F(StatusTableTest, AnUnknownSettingWord) {
  configuration.Port("#PhysicalPort0", "9600 8 Even 1 none");
  StartWithOpenPort();
  BothSay("an unknown setting word");
}

// Whether an answer stands inside of a notification nobody can see: it may.
TEST_F(StatusTableTest, APeerThatStoppedReadingForAWhile) {
  StartWithOpenPort();
  const size_t sent = Clog();
  const std::string header = Wire("04 02 000E '#PhysicalPort0' 01 02");
  for (size_t received = 0; received < sent;) {
    const std::string packet = relay->NextPacket();
    ASSERT_EQ(header, packet.substr(4, header.size())) << received << " of " << sent;
    received += packet.size() / 2 - 2 - header.size() / 2 - 2;  // two lengths of two bytes
  }
  BothSay("an answer inside a notification");
}

TEST_F(StatusTableTest, ARelayServiceThatHasLeft) {
  StartWithOpenPort();
  relay->Leaves();
  ASSERT_TRUE(Service::Prints("[LISTEN]IP:", 2));
  BothSay("all ports are closed");
  ExpectHas(Status(1), "  #PhysicalPort0   not open  /dev/ttyS2\n");
}

}  // namespace
