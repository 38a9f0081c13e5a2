// SPDX-License-Identifier: MIT
#include "soak/World.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

namespace {

constexpr const char* kSettings = "115200 8 none 1 none";
constexpr uint8_t kUsbPorts = 6;

// The hex dump has three characters for each byte: room for some seconds of it.
constexpr int kPipeBytes = 1 << 20;

constexpr std::array<const char*, 3> kNormal = {"Received(", "recv error:", "終了"};

[[noreturn]] void Fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

bool IsNormal(const std::string& line) {
  return std::any_of(kNormal.begin(), kNormal.end(),
                     [&line](const char* begin) { return line.starts_with(begin); });
}

}  // namespace

World::World(Plan& plan) {
  configuration.Port("#PhysicalPort0", kSettings);
  ports.push_back(std::make_unique<SoakPort>("#PhysicalPort0", "/dev/ttyS2", uint8_t{0}, plan));
  for (uint8_t usb = 0; usb < kUsbPorts; ++usb) {
    const std::string name = "#USBSerialPort" + std::to_string(usb);
    const std::string path = "/dev/ttyUSB" + std::to_string(usb);
    configuration.Port(name, kSettings);
    udev.AddAdapterAtPort(usb, path);
    ports.push_back(std::make_unique<SoakPort>(name, path, static_cast<uint8_t>(usb + 1), plan));
  }
  std::array<int, 2> pipeEnds{};
  if (pipe2(pipeEnds.data(), O_CLOEXEC) != 0 || mkfifo(workplace::kErrors, 0600) != 0) {
    Fail("streams");
  }
  output = std::make_unique<LineReader>(pipeEnds[0]);
  errors =
      std::make_unique<LineReader>(open(workplace::kErrors, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  (void)fcntl(errors->Descriptor(), F_SETPIPE_SZ, kPipeBytes);  // less room does, too
  service = std::make_unique<Service>(Service::Session::kOwn, pipeEnds[1]);
  (void)close(pipeEnds[1]);
}

Holdings World::Held() const {
  return {service->Descriptors(), service->Threads(), service->ResidentKilobytes()};
}

void World::ReadErrors() {
  constexpr size_t kEnough = 200;
  for (const std::string& line : errors->Lines()) {
    if (!IsNormal(line) && unexpected.size() < kEnough) {
      unexpected.push_back(line);
    }
  }
}
