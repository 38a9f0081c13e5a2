// SPDX-License-Identifier: MIT
#include "serial/SerialPort.h"

#include <utility>

#include "Linux/CancellationShield.h"
#include "Linux/LinuxThread.h"
#include "serial/Line.h"
#include "serial/LinuxSerial.h"

namespace {

void LogPath(const CLogSource& log, const char* before, const std::string& path,
             int line = __builtin_LINE()) {
  log.Log(LogLevel::kError, std::string(before).append(path).append("]").c_str(), line);
}

constexpr const char* kCannotOpen = "Cannot open serial device. [Port ";
constexpr const char* kDeviceClosed = "Close serial device. [Port ";

}  // namespace

std::shared_ptr<CSerialPortExport> CreateSerialPort(const std::string& moduleName,
                                                    const std::string& logTag) {
  return std::make_shared<CSerialPort>(moduleName, logTag);
}

CSerialPort::CSerialPort(const std::string& moduleName, const std::string& logTag)
    : CSerialPort(moduleName, logTag, std::make_shared<CLinuxSerial>) {}

CSerialPort::CSerialPort(const std::string& moduleName, const std::string& logTag,
                         DeviceMaker maker)
    : log(moduleName, "SerialPort.cpp", logTag), makeDevice(std::move(maker)) {}

CSerialPort::~CSerialPort() {
  const CCancellationShield shield;
  (void)CSerialPort::Close();
}

int CSerialPort::Open(const std::string& name, const ReceiveCallback& callback,
                      const SerialSettings& settings) {
  ReplaceLine();
  line->devicePath = line->device->ResolvePortName(name);
  if (line->devicePath.empty()) {
    LogPath(log, kCannotOpen, line->devicePath);
    return kNoDevice;
  }
  portName = name;
  openKind = kOpenedByName;
  return Start(callback, settings);
}

// cppcheck-suppress unusedFunction ; no command opens by ids yet
int CSerialPort::OpenUsb(uint16_t vendor, uint16_t product, const ReceiveCallback& callback,
                         const SerialSettings& settings) {
  ReplaceLine();
  // Deliberate: two searches, of which the second counts.
  // Pinned by SerialPortUsbTest.OpenUsbSearchesTwice.
  LookupUsbDevicePath(vendor, product, line->devicePath);
  line->devicePath = line->device->FindUsbDevice(vendor, product);
  if (line->devicePath.empty()) {
    LogPath(log, kCannotOpen, line->devicePath);
    return kNoDevice;
  }
  portName = line->devicePath;
  openKind = kOpenedByIds;
  vendorId = vendor;
  productId = product;
  return Start(callback, settings);
}

void CSerialPort::LookupUsbDevicePath(unsigned vendor, unsigned product, std::string& path) {
  path = CLinuxSerial().FindUsbDevice(vendor, product);
}

// A new device object for a new open. A port that was stopped stays stopped.
void CSerialPort::ReplaceLine() {
  auto fresh = std::make_shared<CLine>(
      makeDevice(), [copy = log](const std::string& path) { LogPath(copy, kDeviceClosed, path); });
  if (line != nullptr) {
    fresh->stopRequested = line->stopRequested.load();
    line->Stop();
  }
  line = std::move(fresh);
}

int CSerialPort::Start(const ReceiveCallback& callback, const SerialSettings& settings) {
  const int result = line->device->Open(line->devicePath, settings);
  if (result != kDeviceOpened) {
    LogPath(log, kCannotOpen, line->devicePath);
    return result == kDeviceIsOpen ? kAlreadyOpen : kOpenFailed;
  }
  line->portName = portName;
  line->settings = settings;
  line->callback = callback;
  line->isOpen = true;  // before the thread looks: it would take the device for lost and pause
  thread = std::make_shared<CLinuxThread>();
  receivingBegun = false;
  if (!receivingDeferred) {
    BeginReceiving();
  }
  return kOpened;
}

void CSerialPort::BeginReceiving() {
  if (thread == nullptr || std::exchange(receivingBegun, true)) {
    return;
  }
  auto argument = std::make_unique<std::shared_ptr<CLine>>(line);
  if (thread->Start(CLine::Receive, argument.get()) == 0) {
    (void)argument.release();  // the routine's now
  }
  // Deliberate: without a thread the port is open and receives nothing.
  // Pinned by SerialPortFailureTest.OpenReturns0WhenNoThreadCanBeMade.
}

int CSerialPort::Send(const uint8_t* data, int length) {
  if (line == nullptr || (!line->isOpen && !line->Reopen())) {
    LogPath(log, kCannotOpen, line == nullptr ? "" : line->devicePath);
    return -1;
  }
  for (int sent = 0; sent < length;) {
    // Deliberate: a device that takes nothing is offered the same bytes again at once, for as long
    // as it takes. Pinned by SerialPortTest.AWriteThatReturns0IsOfferedAgain.
    const int result = line->device->Write(data + sent, length - sent);
    if (result < 0) {
      return -1;
    }
    sent += result;
  }
  return length;
}

int CSerialPort::Close() {
  if (line == nullptr) {
    return 0;
  }
  line->Stop();
  if (thread != nullptr) {
    (void)thread->Stop();
  }
  line->isOpen = false;
  return 0;
}
