// SPDX-License-Identifier: MIT
// What the examination of a port and of the service says, on machines made of files. The device
// nodes are the sandbox's own.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "doctor/Doctor.h"
#include "doctor/DoctorHang.h"
#include "e2e/support/Device.h"
#include "e2e/support/Workplace.h"
#include "serial/UsbPlaces.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kPlace = "/devices/pci0000:00/0000:00:1d.2/usb4/4-1";

std::string AdapterAtThePlace(const std::string& name, const std::string& more = "") {
  return std::string("P: ") + kPlace + "\nE: DEVNAME=/dev/bus/usb/002/002\n" + more +
         "\n\nP: " + kPlace + "/1:1.0/" + name + "/tty/" + name + "\nN: " + name +
         "\nE: DEVNAME=/dev/" + name +
         "\nE: ID_BUS=usb\nE: ID_VENDOR_ID=0403\nE: ID_MODEL_ID=6001\nE: ID_MODEL=Model\n\n";
}

void WriteFile(const std::string& path, const std::string& text) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path) << text;
}

class DoctorTest : public testing::Test {
 protected:
  DoctorTest() {
    machine.configuration.path = "/etc/vost.conf";
    machine.configuration.exists = true;
    machine.configuration.relayPort = 60004;
    Configure("#PhysicalPort0");
    Configure("#USBSerialPort0");
    machine.processes = ProcessTable(proc);
    machine.sys = sys;
    machine.ruleFolders = {rules};
    for (const std::string& folder : {proc, sys, rules}) {
      fs::create_directories(folder);
    }
  }

  void Configure(const std::string& name) {
    machine.configuration.ports.push_back({name, {"9600", "8", "none", "1", "none"}, {}});
  }

  // A process with one descriptor that leads to `target`.
  void Process(int pid, const std::string& command, const std::string& target,
               const std::string& status = "Uid:\t0\t0\nGid:\t0\t0\nCapEff:\t0000000000000002\n") {
    const std::string folder = proc + "/" + std::to_string(pid);
    WriteFile(folder + "/comm", command + "\n");
    WriteFile(folder + "/status", status);
    fs::create_directories(folder + "/fd");
    fs::create_symlink(target, folder + "/fd/3");
  }

  // The kernel's folder of a terminal.
  std::string Hardware(const std::string& node, const std::string& name) {
    struct stat status {};
    EXPECT_EQ(0, stat(node.c_str(), &status));
    const std::string folder = sys + "/devices/tty/" + name;
    fs::create_directories(folder + "/device");
    fs::create_directories(sys + "/dev/char");
    fs::create_symlink(folder, sys + "/dev/char/" + std::to_string(major(status.st_rdev)) + ":" +
                                   std::to_string(minor(status.st_rdev)));
    return folder;
  }

  std::string Port(const std::string& name) {
    return ExaminePort(machine, name, LineAccess::kOpenOnes).Text(false);
  }
  std::string Service() {
    Report report = ExamineService(machine, 60004);
    NotePeers(report);
    return report.Text(false);
  }

  const workplace::Folders folders;
  const std::string proc = "/tmp/e2e/doctor/proc";
  const std::string sys = "/tmp/e2e/doctor/sys";
  const std::string rules = "/tmp/e2e/doctor/rules";
  Machine machine;
};

bool Has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

#define EXPECT_HAS(text, part) EXPECT_TRUE(Has((text), (part))) << "in:\n" << (text)
#define EXPECT_HAS_NOT(text, part) EXPECT_FALSE(Has((text), (part))) << "in:\n" << (text)

TEST_F(DoctorTest, AWholePortHasNoFault) {
  const Device device("/dev/ttyUSB0");
  machine.udev = UdevSnapshot(AdapterAtThePlace("ttyUSB0"));
  const Report report = ExaminePort(machine, "#USBSerialPort0", LineAccess::kOpenOnes);
  EXPECT_FALSE(report.HasFault());
  const std::string text = report.Text(false);
  EXPECT_HAS(text, "nothing stands in the way");
  EXPECT_HAS(text, std::string("place          ") + kPlace);
  EXPECT_HAS(text, "node           /dev/ttyUSB0 -> /dev/pts/");
  EXPECT_HAS(text, "ids            0403:6001");
  EXPECT_HAS(text, "may be opened  yes");
}

TEST_F(DoctorTest, SaysThatAPortIsNotConfigured) {
  machine.configuration.ports.clear();
  EXPECT_HAS(Port("#PhysicalPort0"),
             "fault          not configured: an open is answered with "
             "status 2");
}

TEST_F(DoctorTest, SaysWhichSettingIsMissingOrUnknown) {
  const auto with = [this](const std::string& settings) {
    const std::string file = std::string(workplace::kFolder) + "/vost.conf";
    WriteFile(file, "[#PhysicalPort0]\n" + settings);
    (void)setenv("VOST_CONFIG", file.c_str(), 1);
    machine.configuration = ReadMachineConfiguration();
    return Port("#PhysicalPort0");
  };
  EXPECT_HAS(with("baud=9600\ndata=8\nparity=Even\nstop=1\nflow=none\n"),
             "warning        in the configuration: \"parity = Even\" is unknown and counts as 0");
  EXPECT_HAS(with("baud=110\ndata=8\nparity=even\nstop=1\nflow=none\n"),
             "fault          in the configuration: \"baud = 110\" is unknown and counts as 0, "
             "which hangs the line up; known are 2400, ");
  EXPECT_HAS(with("baud=9600\ndata=8\nparity=even\nstop=1\n"),
             "fault          in the configuration: \"flow\" is missing; an open is answered with "
             "status 2");
}

TEST_F(DoctorTest, SaysThatANameLeadsNowhere) {
  EXPECT_HAS(Port("COM1"), "the name leads to no device");
  EXPECT_HAS(Port("#PhysicalPort1"), "the name leads to no device");
  EXPECT_HAS(Port("#USBSerialPort" + std::to_string(kUsbPortCount)), "there is no such place");
  EXPECT_HAS(Port("#USBSerialPort99999999999"), "there is no such place");
}

TEST_F(DoctorTest, TellsWhereAdaptersAreWhenThePlaceIsEmpty) {
  Configure("#USBSerialPort1");
  EXPECT_HAS(Port("#USBSerialPort1"), "there is none elsewhere either");
  machine.udev = UdevSnapshot(AdapterAtThePlace("ttyUSB0"));
  EXPECT_HAS(Port("#USBSerialPort1"),
             "plugged in elsewhere: /dev/ttyUSB0 (0403:6001, #USBSerialPort0)");
}

TEST_F(DoctorTest, SaysThatTheNodeIsMissingOrNoDevice) {
  EXPECT_HAS(Port("#PhysicalPort0"), "there is no /dev/ttyS2: an open is answered with status 4");
  std::ofstream("/dev/ttyS2") << "x";
  EXPECT_HAS(Port("#PhysicalPort0"), "/dev/ttyS2 is no device");
  fs::remove("/dev/ttyS2");
}

TEST_F(DoctorTest, TellsWhoHasThePortOpenAndHowToEndIt) {
  const Device device;
  Hardware("/dev/ttyS2", "ttyS2");
  Process(12, "agetty", device.Node());
  Process(13, "SerialPortHandl", device.Node());
  Process(14, "sleep", "/dev/null");
  const std::string text = Port("#PhysicalPort0");
  EXPECT_HAS(text, "held by        agetty (process 12), SerialPortHandl (process 13)\n");
  EXPECT_HAS(text, "warning        agetty (process 12) has it open");
  EXPECT_HAS(text, "systemctl disable --now serial-getty@ttyS2.service");
  EXPECT_HAS_NOT(text, "SerialPortHandl (process 13) has it open");
}

TEST_F(DoctorTest, SaysWhenTheServiceMayNotOpenTheNode) {
  const Device device;
  Process(13, "SerialPortHandl", "/dev/null",
          "Uid:\t1234\t1234\nGid:\t1234\t1234\nGroups:\t4 24\nCapEff:\t0000000000000000\n");
  ASSERT_EQ(0, chmod(device.Node().c_str(), 0660));
  EXPECT_HAS(Port("#PhysicalPort0"), "SerialPortHandl (process 13), may not open it");
  ASSERT_EQ(0, chmod(device.Node().c_str(), 0666));
  EXPECT_HAS_NOT(Port("#PhysicalPort0"), "may not open it");
}

TEST_F(DoctorTest, SaysWhenAnAdapterHoldsBytesBack) {
  const Device device("/dev/ttyUSB0");
  machine.udev = UdevSnapshot(AdapterAtThePlace("ttyUSB0"));
  const std::string folder = Hardware("/dev/ttyUSB0", "ttyUSB0");
  WriteFile(folder + "/device/latency_timer", "16\n");
  fs::create_directories(sys + "/drivers/ftdi_sio");
  fs::create_symlink(sys + "/drivers/ftdi_sio", folder + "/device/driver");
  const std::string text = Port("#USBSerialPort0");
  EXPECT_HAS(text, "driver         ftdi_sio");
  EXPECT_HAS(text, "latency timer  16 ms");
  EXPECT_HAS(text, "up to 16 ms");
  EXPECT_HAS(text, "echo 1 >/sys/class/tty/ttyUSB0/device/latency_timer");
  WriteFile(folder + "/device/latency_timer", "1\n");
  EXPECT_HAS_NOT(Port("#USBSerialPort0"), "holds received bytes back");
}

TEST_F(DoctorTest, SaysWhenNoUartAnswersAndWhenTheKernelWritesToTheLine) {
  const Device device;
  WriteFile(Hardware("/dev/ttyS2", "ttyS2") + "/type", "0\n");
  WriteFile(proc + "/consoles", "ttyS2                -W- (EC   a)    4:66\n");
  EXPECT_HAS(Port("#PhysicalPort0"), "fault          no UART answers at this node");
  EXPECT_HAS(Port("#PhysicalPort0"), "the kernel writes its messages to this line");
  WriteFile(sys + "/devices/tty/ttyS2/type", "4\n");
  WriteFile(proc + "/consoles", "tty0                 -WU (EC   a)    4:1\n");
  EXPECT_HAS_NOT(Port("#PhysicalPort0"), "no UART answers");
  EXPECT_HAS_NOT(Port("#PhysicalPort0"), "the kernel writes");
}

TEST_F(DoctorTest, SaysWhichProgramsWouldGrabAnAdapter) {
  const Device device("/dev/ttyUSB0");
  machine.udev = UdevSnapshot(AdapterAtThePlace("ttyUSB0"));
  EXPECT_HAS_NOT(Port("#USBSerialPort0"), "ModemManager");
  WriteFile(rules + "/77-mm-usb-device-blacklist.rules", "");
  EXPECT_HAS(Port("#USBSerialPort0"), "warning        ModemManager is installed");
  Process(20, "ModemManager", "/dev/null");
  EXPECT_HAS(Port("#USBSerialPort0"), "warning        ModemManager runs");
  machine.udev = UdevSnapshot(AdapterAtThePlace("ttyUSB0", "E: ID_MM_DEVICE_IGNORE=1"));
  EXPECT_HAS(Port("#USBSerialPort0"), "ok             ModemManager leaves it alone");
  machine.udev = UdevSnapshot(AdapterAtThePlace("ttyUSB0", "E: BRLTTY_BRAILLE_DRIVER=al"));
  EXPECT_HAS(Port("#USBSerialPort0"), "brltty takes this adapter");
}

TEST_F(DoctorTest, SaysWhoListensAndWhoIsConnected) {
  constexpr const char* kHeadings =
      "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout "
      "inode\n";
  const auto row = [](const char* local, const char* remote, const char* state, int inode) {
    return std::string("   0: ") + local + " " + remote + " " + state +
           " 00000000:00000000 00:00000000 00000000     0        0 " + std::to_string(inode) +
           " 1 0000000000000000 100 0 0 10 0\n";
  };
  WriteFile(proc + "/net/tcp", kHeadings);
  EXPECT_HAS(Service(), "fault          nothing listens on 127.0.0.1:60004");
  EXPECT_HAS_NOT(Service(), "cannot listen");
  Process(29, "wget", "socket:[110]");
  WriteFile(proc + "/net/tcp", kHeadings + row("0100007F:EA64", "0100007F:0050", "01", 110));
  EXPECT_HAS(Service(),
             "fault          the service cannot listen: the kernel has given port 60004 to a "
             "connection of wget (process 29)");
  // What the peer before has left keeps nobody from listening.
  WriteFile(proc + "/net/tcp", kHeadings + row("0100007F:EA64", "0100007F:9C40", "06", 0));
  EXPECT_HAS_NOT(Service(), "cannot listen");
  const std::string listens = row("0100007F:EA64", "00000000:0000", "0A", 111);
  WriteFile(proc + "/net/tcp", kHeadings + listens);
  Process(30, "SerialPortHandl", "socket:[111]");
  EXPECT_HAS(Service(), "ok             the service listens on 127.0.0.1:60004");
  EXPECT_HAS_NOT(Service(), "taken");
  Process(31, "python3", "socket:[222]");
  WriteFile(proc + "/net/tcp", kHeadings + listens +
                                   row("0100007F:EA64", "0100007F:9C40", "01", 112) +
                                   row("0100007F:9C40", "0100007F:EA64", "01", 222) +
                                   row("0100007F:EA64", "0100007F:9C41", "01", 0));
  EXPECT_HAS(Service(), "the relay port is taken by python3 (process 31)");
  EXPECT_HAS(Service(), "a peer that is gone is connected as well, and waits");
  Process(32, "nc", "socket:[333]");
  WriteFile(proc + "/net/tcp", kHeadings + row("00000000:EA64", "00000000:0000", "0A", 333));
  EXPECT_HAS(Service(), "nc (process 32) listens on 127.0.0.1:60004, which is not the service");
}

// A thread that runs all the time waits for another one's lock now and then; one that lives on
// events waits behind each.
TEST_F(DoctorTest, TellsAThreadThatSpinsFromOneThatHasMuchToDo) {
  machine.activity.moment = std::chrono::milliseconds(1050);
  machine.activity.callsAreShown = true;
  ThreadActivity thread;
  thread.id = 22;
  thread.processorMillis = 420;
  thread.wroteAlways = false;
  machine.activity.threads = {thread};
  const auto said = [this](uint64_t waits) {
    machine.activity.threads.front().waits = waits;
    Report report{"service"};
    ExamineActivity(machine, report);
    return report.Text(false);
  };
  EXPECT_HAS(said(0), "thread 22 has taken 420 ms of a processor in 1.1 s and never waited\n");
  EXPECT_HAS(said(1), " in 1.1 s and waited once\n");
  EXPECT_HAS(said(2), " in 1.1 s and waited 2 times\n");
  EXPECT_EQ("service\n", said(400));
}

TEST_F(DoctorTest, SaysWhatIsWrongWithTheSystem) {
  machine.udevProblem = "udevadm is not installed, or not on PATH";
  EXPECT_HAS(Service(), "fault          no USB port can be found: udevadm is not installed");
  fs::create_directory("/tmp/deviceinfo.txt");
  EXPECT_HAS(Service(), "/tmp/deviceinfo.txt is no plain file");
  fs::remove("/tmp/deviceinfo.txt");
  machine.configuration.problem = "line 3: no such form";
  EXPECT_HAS(Service(), "warning        libvost complains: line 3: no such form");
  machine.configuration.ports.clear();
  EXPECT_HAS(Service(), "the configuration counts as empty: line 3: no such form");
  machine.configuration.exists = false;
  EXPECT_HAS(Service(), "there is no configuration");
}

TEST(ReportTest, IsOneLineOfJson) {
  Report report{"#PhysicalPort0"};
  report.Fact("row", std::int64_t{3});
  report.Fact("held by", FactList{"a", "b"});
  report.Fact("received", FactCounts{{"frame errors", 2}});
  report.Fact("nothing", "");
  report.Fault("it is \"broken\"\xFF\n", "mend it");
  report.Good("fine \xC3\xA9 \xE2\x82");  // the last is cut off
  EXPECT_EQ(
      "{\"subject\":\"#PhysicalPort0\",\"row\":3,\"held_by\":[\"a\",\"b\"],\"received\":{\"frame_"
      "errors\":2},\"findings\":["
      "{\"severity\":\"fault\",\"text\":\"it is "
      "\\\"broken\\\"\xEF\xBF\xBD\\u000A\",\"mend\":\"mend "
      "it\"},{\"severity\":\"ok\",\"text\":\"fine \xC3\xA9 \xEF\xBF\xBD\xEF\xBF\xBD\"}]}",
      report.Json());
}

TEST(ReportTest, IsColouredOnRequest) {
  Report report{"x"};
  report.Fault("broken", "");
  EXPECT_EQ("x\n  \033[31mfault          \033[0mbroken\n", report.Text(true));
}

}  // namespace
