// SPDX-License-Identifier: MIT
#include "pty/PseudoTerminal.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

namespace {

namespace fs = std::filesystem;

int Checked(int result, const std::string& what) {
  if (result < 0) {
    throw std::system_error(errno, std::generic_category(), what);
  }
  return result;
}

// Through either end: the settings are the near end's.
void SetRaw(int terminal) {
  termios settings{};
  if (tcgetattr(terminal, &settings) == 0) {
    cfmakeraw(&settings);
    settings.c_cflag |= CLOCAL;
    (void)tcsetattr(terminal, TCSANOW, &settings);
  }
}

// The group first, for it is the one that the mode is meant for.
void SetAccess(const std::string& node, const TerminalAccess& access) {
  if (access.group) {
    (void)Checked(chown(node.c_str(), static_cast<uid_t>(-1), *access.group),
                  "cannot give " + node + " to group " + std::to_string(*access.group));
  }
  if (access.mode) {
    (void)Checked(chmod(node.c_str(), *access.mode), "cannot set the mode of " + node);
  }
}

}  // namespace

// The symbolic link that this object has made, told from any other that stands there later.
struct PseudoTerminal::Link {
  std::string path;
  struct stat made {};

  void Remove() const {
    struct stat there {};
    if (lstat(path.c_str(), &there) == 0 && there.st_dev == made.st_dev &&
        there.st_ino == made.st_ino && there.st_ctim.tv_sec == made.st_ctim.tv_sec &&
        there.st_ctim.tv_nsec == made.st_ctim.tv_nsec) {
      (void)unlink(path.c_str());
    }
  }
};

PseudoTerminal::PseudoTerminal(const TerminalPlace& place) {
  farEnd = Checked(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC), "pseudo-terminal");
  try {
    (void)Checked(grantpt(farEnd), "pseudo-terminal");
    (void)Checked(unlockpt(farEnd), "pseudo-terminal");
    std::array<char, 64> name{};
    (void)Checked(ptsname_r(farEnd, name.data(), name.size()), "pseudo-terminal");
    node = name.data();
    watch = Checked(inotify_init1(IN_NONBLOCK | IN_CLOEXEC), "inotify");
    (void)Checked(inotify_add_watch(watch, node.c_str(), IN_OPEN), node);
    SetAccess(node, place.access);
    Settle();
    if (!place.link.empty()) {
      MakeLink(place.link);
    }
  } catch (...) {
    (void)close(farEnd);
    (void)close(watch);
    throw;
  }
}

PseudoTerminal::~PseudoTerminal() {
  if (link != nullptr) {
    link->Remove();
  }
  (void)close(watch);
  (void)close(farEnd);
}

// Renamed into place: whoever opens the path while it is replaced meets the old link or the new.
void PseudoTerminal::MakeLink(const std::string& path) {
  std::error_code error;
  const fs::file_status there = fs::symlink_status(path, error);
  if (fs::exists(there) && !fs::is_symlink(there)) {
    throw std::system_error(EEXIST, std::generic_category(), path);
  }
  const std::string fresh = path + ".new-" + std::to_string(getpid());
  (void)Checked(symlink(node.c_str(), fresh.c_str()), path);
  auto made = std::make_unique<Link>(Link{path});
  if (rename(fresh.c_str(), path.c_str()) != 0) {
    const int reason = errno;
    (void)unlink(fresh.c_str());
    throw std::system_error(reason, std::generic_category(), path);
  }
  // Behind the renaming, which is a change of it.
  (void)Checked(lstat(path.c_str(), &made->made), path);
  link = std::move(made);
  will = std::make_unique<LastWill>([this] { link->Remove(); }, std::vector<int>{});
}

// Whoever has left bytes is still there until they are read.
bool PseudoTerminal::HasNobody() const {
  pollfd state = {farEnd, POLLIN, 0};
  return poll(&state, 1, 0) == 1 && (state.revents & (POLLHUP | POLLIN)) == POLLHUP;
}

bool PseudoTerminal::DrainOpenings() const {
  std::array<char, 4096> events{};
  bool hasAny = false;
  while (read(watch, events.data(), events.size()) > 0) {
    hasAny = true;
  }
  return hasAny;
}

// Nobody has it open: the state for the next one. Opening it here shows in Openings() too, so these
// are dropped, and the question who has it open is asked once more behind that: whoever came
// meanwhile is not missed. Only what goes to programs is thrown away: what they write has been read
// up to its end, and may already be that of whoever came meanwhile.
void PseudoTerminal::Settle() {
  const int nearEnd = open(node.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (nearEnd != -1) {
    (void)tcflush(nearEnd, TCIFLUSH);
    SetRaw(nearEnd);
    (void)close(nearEnd);
  }
  (void)DrainOpenings();
  inUse = !HasNobody();
}

// Whoever came and left between two looks may have left settings behind, or bytes unread, as well.
bool PseudoTerminal::Look() {
  const bool before = inUse;
  inUse = DrainOpenings() || inUse;
  if (inUse && HasNobody()) {
    Settle();
  }
  return inUse != before;
}

size_t PseudoTerminal::Read(char* bytes, size_t size) {
  const ssize_t count = read(farEnd, bytes, size);
  if (count > 0) {
    return static_cast<size_t>(count);
  }
  // The last bytes of a program that has left are read first; then it fails.
  if (inUse && HasNobody()) {
    Settle();
  }
  return 0;
}

size_t PseudoTerminal::Write(const char* bytes, size_t size) {
  const ssize_t count = write(farEnd, bytes, size);
  return count > 0 ? static_cast<size_t>(count) : 0;
}
