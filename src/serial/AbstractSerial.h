// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include "serial/SerialSettings.h"

// Results of Open.
enum DeviceResult : int {
  kDeviceOpened = 0,
  kDeviceNotOpened = -1,  // it cannot be opened or configured, and is closed again
  kDeviceIsOpen = -2,     // one is open already, which is left alone
};

// One serial device, and the search for devices.
//
// Nothing here goes to the log, and only FindUsbDevice throws.
// Threads: one thread may wait in Read while others Write and Close. Open is called by one thread
// at a time. Close wakes nobody, but a Read ends within 0.1 s by itself; the descriptor is given
// back when the last call on it has ended.
class CAbstractSerial {
 public:
  virtual ~CAbstractSerial() = default;

  // Opens and configures the device at `path`: a DeviceResult. Blocks, and cannot be cancelled,
  // as long as the driver waits for a carrier or for an adapter's answer. A Close meanwhile ends it
  // with kDeviceNotOpened and leaves the line as it is. "OPEN[path]" on standard output on success.
  virtual int Open(const std::string& path, const SerialSettings& settings) = 0;

  // Drops DTR, discards what is pending and closes: 0, also when nothing is open, or -1 when the
  // system reports a failure; the descriptor is then kept.
  virtual int Close() = 0;

  // Applies the settings to the open device: 0 or -1.
  virtual int Configure(const SerialSettings& settings) = 0;

  // `length` when all bytes were written (and, as it is, when it is below 1), or 0 as soon as the
  // device takes none; some may have been written then. Blocks while the line is held.
  virtual int Write(const uint8_t* data, int length) = 0;

  // How many bytes came, 0 after 0.1 s without any, or -1 with errno set; EIO when the line has
  // hung up.
  virtual int Read(uint8_t* buffer, int capacity) = 0;

  // The node of the first USB serial adapter with these ids; empty when its record names none.
  // Throws std::logic_error when there is no such adapter. Dumps the udev database: a search takes
  // as long as udevadm does, and two at the same time disturb each other.
  virtual std::string FindUsbDevice(unsigned vendorId, unsigned productId) = 0;

  // The node that a symbolic port name stands for, or an empty text when it leads nowhere. Dumps
  // the udev database for a USB port, see FindUsbDevice.
  virtual std::string ResolvePortName(const std::string& portName) = 0;

  // Close, and no Open succeeds from now on: one that is about to begin, or under way, leaves the
  // line as it is, for somebody else may have opened it by then.
  virtual int CloseForGood() { return Close(); }
};
