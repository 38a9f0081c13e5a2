// SPDX-License-Identifier: MIT
#include "serial/LinuxSerial.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

#include "Linux/CancellationShield.h"
#include "Linux/Console.h"
#include "serial/LineSettings.h"
#include "serial/PortNameResolver.h"
#include "serial/UdevScanner.h"

namespace {

// After a hang-up read does not fail: it gives 0 at once, like an idle line's timeout, for ever.
bool IsHungUp(int descriptor) {
  pollfd line = {descriptor, 0, 0};  // hang-up and error are reported unasked
  return poll(&line, 1, 0) == 1 && (line.revents & (POLLHUP | POLLERR)) != 0;
}

bool EnterRawMode(int descriptor) {
  termios attributes{};
  if (tcgetattr(descriptor, &attributes) != 0) {
    return false;
  }
  SetRawMode(attributes);
  return tcsetattr(descriptor, TCSANOW, &attributes) == 0;
}

bool ApplySettings(int descriptor, const SerialSettings& settings) {
  termios attributes{};
  if (tcgetattr(descriptor, &attributes) != 0) {
    return false;
  }
  SetLine(attributes, settings);
  return tcsetattr(descriptor, TCSANOW, &attributes) == 0;
}

}  // namespace

CLinuxSerial::CLinuxSerial() = default;

CLinuxSerial::~CLinuxSerial() { (void)CLinuxSerial::Close(); }

int CLinuxSerial::Open(const std::string& path, const SerialSettings& settings) {
  if (fd.IsOpen()) {
    return kDeviceIsOpen;
  }
  // A cancellation that meets an open acts on its way out, also when it has succeeded: the
  // descriptor would be lost, and the node stay busy.
  const CCancellationShield shield;
  const unsigned closesBefore = closes;
  if (isClosedForGood) {  // looked at behind `closes`: a close that comes later is counted
    return kDeviceNotOpened;
  }
  const int opened = open(path.c_str(), O_RDWR);
  if (opened < 0) {
    return kDeviceNotOpened;
  }
  const auto isOvertaken = [this, closesBefore] { return closes != closesBefore; };
  (void)fcntl(opened, F_SETFD, FD_CLOEXEC);  // the tools that the service runs must not hold lines
  const bool isSetUp = !isOvertaken() && EnterRawMode(opened) && ApplySettings(opened, settings);
  // Once more, as the settings of an adapter that is being pulled take seconds: the line's queues,
  // and DTR, may be another port's by now.
  if (isOvertaken()) {
    (void)close(opened);
    return kDeviceNotOpened;
  }
  devicePath = path;
  if (!isSetUp || tcflush(opened, TCIOFLUSH) != 0) {
    fd.Set(opened);
    (void)Close();
    return kDeviceNotOpened;
  }
  // Only now: a write that waits for the device must not meet it at the wrong speed, nor have its
  // bytes flushed.
  fd.Set(opened);
  WriteStandardOutput("OPEN[" + path + "]\n");
  return kDeviceOpened;
}

// cppcheck-suppress unusedFunction ; every device has it, open or not
int CLinuxSerial::Configure(const SerialSettings& settings) {
  return ApplySettings(fd.Use()->Number(), settings) ? 0 : -1;
}

int CLinuxSerial::Close() {
  const CCancellationShield shield;
  ++closes;
  const auto taken = fd.TakeOut();
  if (taken->Number() == -1) {
    return 0;
  }
  const int dtr = TIOCM_DTR;
  // Both fail where the device is gone, the first also where there are no modem lines.
  (void)ioctl(taken->Number(), TIOCMBIC, &dtr);
  (void)tcflush(taken->Number(), TCIOFLUSH);
  return fd.Close(taken);
}

int CLinuxSerial::CloseForGood() {
  isClosedForGood = true;
  return CLinuxSerial::Close();
}

int CLinuxSerial::Write(const uint8_t* data, int length) {
  const auto use = fd.Use();
  for (int done = 0; done < length;) {
    const ssize_t written = write(use->Number(), data + done, static_cast<size_t>(length - done));
    if (written <= 0) {
      return 0;
    }
    done += static_cast<int>(written);
  }
  return length;
}

int CLinuxSerial::Read(uint8_t* buffer, int capacity) {
  const auto use = fd.Use();
  const ssize_t count = read(use->Number(), buffer, static_cast<size_t>(capacity));
  if (count == 0 && IsHungUp(use->Number())) {
    errno = EIO;
    return -1;
  }
  return static_cast<int>(count);
}

std::string CLinuxSerial::FindUsbDevice(unsigned vendorId, unsigned productId) {
  UdevRecord record;
  const int found = [&] {
    const CDeviceDatabase database;
    return FindDeviceByIds(vendorId, productId, &record);
  }();
  if (found != kDeviceFound) {
    // Deliberate: nothing catches this, so naming an adapter that is not plugged in ends the
    // process. Pinned by tests/recordings/adapters/close-by-absent-ids.rec.
    throw std::logic_error("no USB serial adapter has the ids that were asked for");
  }
  return record.devName;
}

std::string CLinuxSerial::ResolvePortName(const std::string& portName) {
  return ::ResolvePortName(portName);
}
