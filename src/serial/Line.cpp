// SPDX-License-Identifier: MIT
#include "serial/Line.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include "Linux/Console.h"
#include "Linux/Sleep.h"
#include "serial/HexDump.h"

namespace {

constexpr int kBufferBytes = 4096;
constexpr unsigned kReopenPauseMilliseconds = 500;

}  // namespace

CLine::CLine(std::shared_ptr<CAbstractSerial> closedDevice, Lost lost)
    : device(std::move(closedDevice)), reportLost(std::move(lost)) {}

void* CLine::Receive(void* line) {
  const std::unique_ptr<std::shared_ptr<CLine>> owned(static_cast<std::shared_ptr<CLine>*>(line));
  (*owned)->ReceiveUntilStopped();
  return nullptr;
}

void CLine::ReceiveUntilStopped() {
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

void CLine::CloseAfter(int readError) {
  WriteStandardError("recv error:" + std::string(std::strerror(readError)) + "\n");
  if (stopRequested) {
    return;  // the port has closed the device under the read
  }
  if (isOpen) {
    WriteStandardOutput("(" + devicePath + ")port close\n");
    (void)device->Close();
    isOpen = false;
  }
  reportLost(devicePath);
}

void CLine::Deliver(const uint8_t* data, int length) {
  WriteStandardError(FormatHexDump(data, static_cast<size_t>(length), dump));
  const std::string name = portName;
  callback.onData(name, data, length, callback.context);
}

bool CLine::Reopen() {
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

void CLine::Stop() {
  stopRequested = true;
  (void)device->CloseForGood();
}
