// SPDX-License-Identifier: MIT
#include "serial/SerialPort.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include "Linux/CancellationShield.h"
#include "Linux/Console.h"
#include "Linux/LinuxThread.h"
#include "Linux/Sleep.h"
#include "serial/HexDump.h"
#include "serial/LinuxSerial.h"

namespace {

constexpr int kBufferBytes = 4096;
constexpr unsigned kReopenPauseMilliseconds = 500;

void LogPath(const CLogSource& log, const char* before, const std::string& path,
             int line = __builtin_LINE()) {
  log.Log(LogLevel::kError, (before + path + "]").c_str(), line);
}

constexpr const char* kCannotOpen = "Cannot open serial device. [Port ";
constexpr const char* kDeviceClosed = "Close serial device. [Port ";

}  // namespace

// The open device of a port, as the port and its receive thread share it. Both hold it: a thread
// that the bounded stop gave up on may outlive its port.
class CSerialPort::CLine {
 public:
  explicit CLine(const CLogSource& portLog)
      : device(std::make_shared<CLinuxSerial>()), log(portLog) {}

  // The routine of the receive thread. `line` is a std::shared_ptr<CLine> on the heap, which the
  // routine takes over.
  static void* Receive(void* line);

  // Opens the device again unless it is open: true when this call did.
  bool Reopen();

  // The receive thread ends at its next look; the device is closed.
  void Stop();

  // Set by the port before the receive thread starts, unchanged afterwards.
  const std::shared_ptr<CAbstractSerial> device;
  std::string devicePath;
  std::string portName;
  ReceiveCallback callback;
  SerialSettings settings;

  std::atomic<bool> isOpen{false};         // set by whoever opens, cleared by whoever closes
  std::atomic<bool> stopRequested{false};  // set by the port, never cleared

 private:
  void ReceiveUntilStopped();
  void CloseAfter(int readError);
  void Deliver(const uint8_t* data, int length);

  const CLogSource log;
  std::atomic<bool> reopening{false};  // the port's Send and the receive thread may meet there
  std::string dump;                    // the receive thread's
};

void* CSerialPort::CLine::Receive(void* line) {
  const std::unique_ptr<std::shared_ptr<CLine>> owned(static_cast<std::shared_ptr<CLine>*>(line));
  (*owned)->ReceiveUntilStopped();
  return nullptr;
}

void CSerialPort::CLine::ReceiveUntilStopped() {
  std::vector<uint8_t> buffer(kBufferBytes);
  while (!stopRequested) {
    if (!isOpen && !Reopen()) {
      (void)SleepMilliseconds(kReopenPauseMilliseconds);
      continue;
    }
    const int count = device->Read(buffer.data(), kBufferBytes);
    if (count < 0) {
      CloseAfter(errno);
    } else if (count > 0 && callback.onData != nullptr) {
      Deliver(buffer.data(), count);
      std::fill_n(buffer.begin(), count, uint8_t{0});  // the rest is still 0
    }
  }
}

void CSerialPort::CLine::CloseAfter(int readError) {
  WriteStandardError("recv error:" + std::string(std::strerror(readError)) + "\n");
  if (stopRequested) {
    return;  // the port has closed the device under the read
  }
  if (isOpen) {
    WriteStandardOutput("(" + devicePath + ")port close\n");
    (void)device->Close();
    isOpen = false;
  }
  LogPath(log, kDeviceClosed, devicePath);
}

void CSerialPort::CLine::Deliver(const uint8_t* data, int length) {
  FormatHexDump(data, static_cast<size_t>(length), dump);
  WriteStandardError(dump);
  const std::string name = portName;
  callback.onData(name, data, length, callback.context);
}

bool CSerialPort::CLine::Reopen() {
  if (isOpen || devicePath.empty() || reopening.exchange(true)) {
    return false;
  }
  bool opened = device->Open(devicePath, settings) == kDeviceOpened;
  if (opened && stopRequested) {
    (void)device->Close();  // the port's Close came while the device was not open yet
    opened = false;
  }
  if (opened) {
    isOpen = true;
  }
  reopening = false;
  return opened;
}

void CSerialPort::CLine::Stop() {
  stopRequested = true;
  (void)device->Close();
}

std::shared_ptr<CSerialPortExport> CreateSerialPort(const std::string& moduleName,
                                                    const std::string& logTag) {
  return std::make_shared<CSerialPort>(moduleName, logTag);
}

CSerialPort::CSerialPort(const std::string& moduleName, const std::string& logTag)
    : log(moduleName, "SerialPort.cpp", logTag) {}

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

int CSerialPort::OpenUsb(uint16_t vendor, uint16_t product, const ReceiveCallback& callback,
                         const SerialSettings& settings) {
  ReplaceLine();
  // Deliberate: two searches, of which the second counts.
  // Pinned by SerialPortTest.OpenUsbSearchesTwice.
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
  auto fresh = std::make_shared<CLine>(log);
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
  // Pinned by SerialPortTest.OpenReturns0WhenNoThreadCanBeMade.
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
