// SPDX-License-Identifier: MIT
#include "e2e/support/Device.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "e2e/support/Transfer.h"

namespace {

int Checked(int result) {
  if (result < 0) {
    throw std::system_error(errno, std::generic_category(), "pseudo-terminal");
  }
  return result;
}

}  // namespace

Device::Device(std::string where) : path(std::move(where)) { Plug(); }

Device::~Device() { Unplug(); }

void Device::Plug() {
  farEnd = Checked(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
  (void)Checked(unlockpt(farEnd));
  std::array<char, 64> name{};
  (void)Checked(ptsname_r(farEnd, name.data(), name.size()));
  node = name.data();
  termios attributes{};  // from the far end too, these are the near end's
  (void)Checked(tcgetattr(farEnd, &attributes));
  cfmakeraw(&attributes);
  (void)Checked(tcsetattr(farEnd, TCSANOW, &attributes));
  std::filesystem::remove(path);
  std::filesystem::create_symlink(node, path);
}

void Device::Unplug() {
  if (farEnd == -1) {
    return;
  }
  std::filesystem::remove(path);
  (void)close(farEnd);
  farEnd = -1;
}

bool Device::Sends(const std::string& bytes) const { return WritesAll(farEnd, bytes); }

// While nobody has the near end open, the far end reads as an error.
std::string Device::ReadsWaiting(size_t most) const {
  std::string bytes(most, '\0');
  const ssize_t result = read(farEnd, bytes.data(), bytes.size());
  bytes.resize(result > 0 ? static_cast<size_t>(result) : 0);
  return bytes;
}

std::string Device::Reads(size_t count) const { return ReadsAll(farEnd, count); }

termios Device::Settings() const {
  termios attributes{};
  (void)Checked(tcgetattr(farEnd, &attributes));
  return attributes;
}
