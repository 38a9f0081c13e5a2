// SPDX-License-Identifier: MIT
#include "e2e/support/Device.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "e2e/support/Wait.h"

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

bool Device::Sends(const std::string& bytes) const {
  constexpr size_t kPiece = 65536;
  for (size_t sent = 0; sent < bytes.size();) {
    const size_t end = std::min(bytes.size(), sent + kPiece);
    const bool done = Becomes([&] {
      const ssize_t result = write(farEnd, bytes.data() + sent, end - sent);
      sent += result > 0 ? static_cast<size_t>(result) : 0;
      return sent == end;
    });
    if (!done) {
      return false;  // the deadline is one piece's: a slow reader is no failure
    }
  }
  return true;
}

// While nobody has the near end open, the far end reads as an error.
std::string Device::ReadsWaiting() const {
  std::array<char, 4096> buffer{};
  const ssize_t result = read(farEnd, buffer.data(), buffer.size());
  return {buffer.data(), result > 0 ? static_cast<size_t>(result) : 0};
}

std::string Device::Reads(size_t count) const {
  std::string bytes;
  (void)Becomes([&] {
    std::string buffer(std::min<size_t>(count - bytes.size(), 65536), '\0');
    const ssize_t result = read(farEnd, buffer.data(), buffer.size());
    bytes.append(buffer, 0, result > 0 ? static_cast<size_t>(result) : 0);
    return bytes.size() == count;
  });
  return bytes;
}

termios Device::Settings() const {
  termios attributes{};
  (void)Checked(tcgetattr(farEnd, &attributes));
  return attributes;
}
