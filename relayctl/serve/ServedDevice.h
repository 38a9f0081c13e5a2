// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "relay/Client.h"

class Loop;

// What is plugged in at a port: it is made when it is plugged in and destroyed when it goes.
// Nothing here waits. A port has its device read and written only while it is open.
class ServedDevice {
 public:
  // The port, as its device sees it. All outlive the device.
  struct Line {
    std::string port;
    Loop& loop;
    std::function<short()> wanted;                      // POLLIN, POLLOUT: what the port waits for
    std::function<void()> wake;                         // it may have come
    std::function<void(const std::string& text)> tell;  // to the person
    std::function<void(const std::string& text)> provoke;  // later, as typed by the person
  };

  virtual ~ServedDevice() = default;

  // The port is opened: what the device has sent before is lost.
  virtual void Open() {}
  virtual void Close() {}

  // It was plugged in at a port that was open, and has opened it by itself.
  virtual void OpenAgain() { Open(); }

  // How many of the bytes it takes at the moment.
  virtual size_t Take(std::string_view bytes) = 0;

  // What it has sent, at most so much.
  virtual std::string Give(size_t most) = 0;

  // When it will give something without `wake`.
  virtual std::optional<relay::Clock::time_point> Due() const { return std::nullopt; }
};

// What a person has written behind the port's name: "echo", "pty:PATH".
struct DeviceChoice {
  std::string port;
  std::function<std::unique_ptr<ServedDevice>(const ServedDevice::Line& line)> make;
};

// "#USBSerialPort0=echo". `isFast`: recordings are played without their pauses. Throws kUsage for
// what is none, and kSystem for a file that cannot be read.
DeviceChoice ChooseDevice(const std::string& text, bool isFast = false);
