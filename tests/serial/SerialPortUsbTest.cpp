// SPDX-License-Identifier: MIT
// Ports that are found through the udev database.
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <stdexcept>

#include "serial/SerialPortTest.h"
#include "support/PtyLine.h"
#include "support/UdevTool.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

namespace fs = std::filesystem;

// A port on a real device: one adapter, whose node is a symbolic link in the test's folder.
class SerialPortUsbTest : public SerialPortTest {
 protected:
  SerialPortUsbTest() {
    port = CreateSerialPort("TheModule", "TheTag");
    Link();
    udev.Prints(Adapter(node));
  }

  static std::string Adapter(const std::string& devName) {
    return "P: /devices/pci0000:00/0000:00:1d.2/usb4/4-1/4-1:1.0/ttyUSB4/tty/ttyUSB4\nN: ttyUSB4\n"
           "E: ID_BUS=usb\nE: ID_VENDOR_ID=0403\nE: ID_MODEL_ID=6001\nE: DEVNAME=" +
           devName + "\n\n";
  }

  void Link() {
    const std::string fresh = udev.Path("fresh");
    fs::create_symlink(line->Node(), fresh);
    fs::rename(fresh, node);
  }

  int OpenUsb() { return port->OpenUsb(0x0403, 0x6001, receiver.Callback(), kSettings); }

  static constexpr int kNone = -1;
  std::atomic<int> descriptorsAtPause{kNone};  // when a thread pauses for the first time
  UdevTool udev;
  std::unique_ptr<PtyLine> line = std::make_unique<PtyLine>();
  const std::string node = udev.Path("ttyUSB4");
};

TEST_F(SerialPortUsbTest, AUsbPortIsOpenedByItsIdsUnderItsPath) {
  EXPECT_EQ(0, OpenUsb());
  EXPECT_EQ(node, port->GetPortName());
  EXPECT_EQ(0x0403, port->GetVendorId());
  EXPECT_EQ(0x6001, port->GetProductId());
  EXPECT_EQ(0U, port->GetOpenKind());
  line->Sends("hello");
  EXPECT_TRUE(receiver.WaitFor("hello"));
  EXPECT_EQ(node, receiver.Deliveries()[0].portName);
}

TEST_F(SerialPortUsbTest, AnUnpluggedAdapterIsReopenedAtItsPathWithoutASearch) {
  StreamCapture output(STDOUT_FILENO);
  StreamCapture error(STDERR_FILENO);
  onPause = [this](unsigned) {
    if (descriptorsAtPause == kNone) {
      descriptorsAtPause = OpenDescriptorCount();
    }
  };
  ASSERT_EQ(0, port->Open("#USBSerialPort0", receiver.Callback(), kSettings));
  EXPECT_EQ("OPEN[" + node + "]\n", output.NextLine());
  const int descriptors = OpenDescriptorCount();
  fs::remove(node);
  line->HangUp();
  ASSERT_TRUE(Eventually([this] { return descriptorsAtPause != kNone; }));
  EXPECT_EQ(descriptors - 2, descriptorsAtPause) << "the far end and the device are closed at once";
  EXPECT_EQ("recv error:Input/output error\n", error.NextLine());
  EXPECT_EQ("(" + node + ")port close\n", output.NextLine());
  ASSERT_TRUE(Eventually([] { return CapturedLog().size() == 1; }));
  EXPECT_EQ(-1, Send("lost"));
  EXPECT_THAT(CapturedMessages(), ElementsAre("Close serial device. [Port " + node + "]",
                                              "Cannot open serial device. [Port " + node + "]"));
  line = std::make_unique<PtyLine>();
  Link();
  EXPECT_EQ("OPEN[" + node + "]\n", output.NextLine());
  line->Sends("back");
  EXPECT_TRUE(receiver.WaitFor("back"));
  EXPECT_EQ(1U, udev.Runs().size());
}

TEST_F(SerialPortUsbTest, AnAbsentAdapterThrowsBeforeAnythingIsLogged) {
  EXPECT_THROW((void)port->OpenUsb(0x0403, 0x6002, receiver.Callback(), kSettings),
               std::logic_error);
  EXPECT_THAT(CapturedLog(), IsEmpty());
  EXPECT_EQ(2U, port->GetOpenKind());
  EXPECT_EQ(1U, udev.Runs().size());
  EXPECT_EQ(0, port->Close());
}

TEST_F(SerialPortUsbTest, AnAdapterThatVanishesBetweenTheSearchesThrows) {
  udev.PrintsLater("nothing");
  EXPECT_THROW((void)OpenUsb(), std::logic_error);
  EXPECT_THAT(CapturedLog(), IsEmpty());
}

TEST_F(SerialPortUsbTest, AnAdapterWithoutANodeReturnsMinus1AndLogsMessage0) {
  udev.Prints(Adapter(""));
  EXPECT_EQ(-1, OpenUsb());
  EXPECT_THAT(CapturedMessages(), ElementsAre("Cannot open serial device. [Port ]"));
  EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(0));
  EXPECT_EQ("", port->GetPortName());
  EXPECT_EQ(2U, port->GetOpenKind());
}

TEST_F(SerialPortUsbTest, AnAdapterThatCannotBeOpenedReturnsMinus2AndKeepsItsIds) {
  fs::remove(node);
  EXPECT_EQ(-2, OpenUsb());
  EXPECT_THAT(CapturedMessages(), ElementsAre("Cannot open serial device. [Port " + node + "]"));
  EXPECT_EQ(node, port->GetPortName());
  EXPECT_EQ(0x0403, port->GetVendorId());
  EXPECT_EQ(0U, port->GetOpenKind());
}

TEST_F(SerialPortUsbTest, LookupFindsThePathOrThrows) {
  std::string path = "before";
  CSerialPort::LookupUsbDevicePath(0x0403, 0x6001, path);
  EXPECT_EQ(node, path);
  EXPECT_THROW(CSerialPort::LookupUsbDevicePath(1, 2, path), std::logic_error);
  EXPECT_EQ(node, path);
}

TEST_F(SerialPortUsbTest, OpenUsbSearchesTwice) {
  udev.Prints(Adapter("/dev/first"));
  udev.PrintsLater(Adapter(node));
  EXPECT_EQ(0, OpenUsb());
  EXPECT_THAT(udev.Runs(), ElementsAre("info --export-db", "info --export-db"));
  EXPECT_EQ(node, port->GetPortName()) << "the second search counts";
}

}  // namespace
