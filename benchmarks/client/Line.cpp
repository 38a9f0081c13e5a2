// SPDX-License-Identifier: MIT
#include "client/Line.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cstdlib>

#include "client/Checked.h"

Line::Line(const std::string& path) : master(Checked(posix_openpt(O_RDWR | O_NOCTTY), "openpt")) {
  Checked(fcntl(master, F_SETFD, FD_CLOEXEC), "fcntl");
  Checked(grantpt(master), "grantpt");
  Checked(unlockpt(master), "unlockpt");
  std::array<char, 64> name{};
  Checked(-ptsname_r(master, name.data(), name.size()), "ptsname_r");
  slave = Checked(open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC), "open pty");
  termios attributes{};
  Checked(tcgetattr(slave, &attributes), "tcgetattr");
  cfmakeraw(&attributes);
  Checked(tcsetattr(slave, TCSANOW, &attributes), "tcsetattr");
  (void)unlink(path.c_str());
  Checked(symlink(name.data(), path.c_str()), "symlink");
}

Line::~Line() {
  (void)close(slave);
  (void)close(master);
}

void Line::Write(const uint8_t* data, size_t count) const {
  for (size_t done = 0; done < count;) {
    done += static_cast<size_t>(Checked(write(master, data + done, count - done), "write pty"));
  }
}

size_t Line::TryWrite(const uint8_t* data, size_t count, int milliseconds) const {
  pollfd room = {master, POLLOUT, 0};
  if (Checked(poll(&room, 1, milliseconds), "poll pty") == 0) {
    return 0;
  }
  const int flags = Checked(fcntl(master, F_GETFL), "fcntl");
  Checked(fcntl(master, F_SETFL, flags | O_NONBLOCK), "fcntl");
  const ssize_t written = write(master, data, count);
  const int error = errno;
  Checked(fcntl(master, F_SETFL, flags), "fcntl");
  if (written < 0 && error != EAGAIN) {
    throw std::system_error(error, std::generic_category(), "write pty");
  }
  return written < 0 ? 0 : static_cast<size_t>(written);
}

size_t Line::ReadSome(uint8_t* data, size_t capacity) const {
  return static_cast<size_t>(Checked(read(master, data, capacity), "read pty"));
}

void Line::ReadExactly(uint8_t* data, size_t count) const {
  for (size_t done = 0; done < count;) {
    done += ReadSome(data + done, count - done);
  }
}
