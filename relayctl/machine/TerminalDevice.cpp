// SPDX-License-Identifier: MIT
#include "machine/TerminalDevice.h"

#include <fcntl.h>
#include <grp.h>
#include <linux/serial.h>
#include <pwd.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <sstream>

#include "machine/Files.h"

namespace {

namespace fs = std::filesystem;

std::optional<int> ReadNumber(const std::string& path) {
  std::istringstream file(TextOf(path));
  int number = 0;
  return file >> number ? std::optional(number) : std::nullopt;
}

}  // namespace

std::string UserName(uid_t user) {
  const passwd* const entry = getpwuid(user);
  return entry != nullptr ? entry->pw_name : std::to_string(user);
}

std::string TerminalNode::Owner() const { return UserName(owner); }

std::string TerminalNode::Group() const {
  const struct group* const entry = getgrgid(group);
  return entry != nullptr ? entry->gr_name : std::to_string(group);
}

std::string TerminalNode::Permissions() const {
  std::array<char, 16> octal{};
  (void)std::snprintf(octal.data(), octal.size(), "%04o", unsigned{mode & 07777});
  return Owner() + ":" + Group() + " " + octal.data();
}

TerminalNode InspectNode(const std::string& path) {
  TerminalNode node;
  std::error_code none;
  if (fs::is_symlink(path, none)) {
    node.target = fs::canonical(path, none).string();
  }
  struct stat status {};
  node.exists = stat(path.c_str(), &status) == 0;
  if (node.exists) {
    node.isCharacterDevice = S_ISCHR(status.st_mode);
    node.mayBeOpened = faccessat(AT_FDCWD, path.c_str(), R_OK | W_OK, AT_EACCESS) == 0;
    node.number = status.st_rdev;
    node.owner = status.st_uid;
    node.group = status.st_gid;
    node.mode = status.st_mode;
  }
  return node;
}

bool MayOpen(const TerminalNode& node, const Process& process) {
  const auto allows = [&](mode_t bits) { return (node.mode & bits) == bits; };
  if (process.overridesPermissions) {
    return true;
  }
  if (process.user == node.owner) {
    return allows(S_IRUSR | S_IWUSR);
  }
  return process.groups.contains(node.group) ? allows(S_IRGRP | S_IWGRP)
                                             : allows(S_IROTH | S_IWOTH);
}

std::string CurrentUser() { return UserName(geteuid()); }

TerminalHardware InspectHardware(dev_t number, const std::string& sys) {
  TerminalHardware hardware;
  const std::string folder =
      sys + "/dev/char/" + std::to_string(major(number)) + ":" + std::to_string(minor(number));
  hardware.name = NameIn(LinkOf(folder));
  hardware.driver = NameIn(LinkOf(folder + "/device/driver"));
  hardware.latencyMillis = ReadNumber(folder + "/device/latency_timer");
  hardware.uartType = ReadNumber(folder + "/type");
  return hardware;
}

std::optional<LineCounters> ReadCounters(const std::string& path) {
  const int terminal = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (terminal == -1) {
    return std::nullopt;
  }
  serial_icounter_struct counts{};
  const bool counted = ioctl(terminal, TIOCGICOUNT, &counts) == 0;
  (void)close(terminal);
  if (!counted) {
    return std::nullopt;
  }
  return LineCounters{counts.rx,  counts.tx,      counts.frame,      counts.parity,
                      counts.brk, counts.overrun, counts.buf_overrun};
}

std::optional<LineProgress> ReadProgress(const std::string& path) {
  const int terminal = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (terminal == -1) {
    return std::nullopt;
  }
  LineProgress progress;
  serial_icounter_struct counts{};
  (void)ioctl(terminal, TIOCOUTQ, &progress.waiting);
  const bool isCounted = ioctl(terminal, TIOCGICOUNT, &counts) == 0;
  progress.sent = isCounted ? counts.tx : 0;
  progress.isTold = isCounted || progress.waiting > 0;
  (void)close(terminal);
  return progress;
}
