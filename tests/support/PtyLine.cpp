// SPDX-License-Identifier: MIT
#include "support/PtyLine.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "support/Eventually.h"

PtyLine::PtyLine() : descriptor(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK)) {
  char path[64] = {};
  EXPECT_NE(-1, descriptor);
  EXPECT_EQ(0, grantpt(descriptor));
  EXPECT_EQ(0, unlockpt(descriptor));
  EXPECT_EQ(0, ptsname_r(descriptor, path, sizeof path));
  node = path;
}

void PtyLine::Sends(const std::string& bytes) const {
  size_t sent = 0;
  EXPECT_TRUE(Eventually([&] {
    const ssize_t count = write(descriptor, bytes.data() + sent, bytes.size() - sent);
    sent += count > 0 ? static_cast<size_t>(count) : 0;
    return sent == bytes.size();
  }));
}

std::string PtyLine::Receives(size_t count) const {
  std::string bytes;
  (void)Eventually([&] {
    char chunk[4096];
    const ssize_t more = read(descriptor, chunk, std::min(sizeof chunk, count - bytes.size()));
    bytes.append(chunk, more > 0 ? static_cast<size_t>(more) : 0);
    return bytes.size() == count;
  });
  return bytes;
}

termios PtyLine::Settings() const {
  termios attributes{};
  EXPECT_EQ(0, tcgetattr(descriptor, &attributes));
  return attributes;
}

void PtyLine::HangUp() {
  if (descriptor != -1) {
    (void)close(descriptor);
    descriptor = -1;
  }
}

int OpenDescriptorCount() {
  DIR* const folder = opendir("/proc/self/fd");
  int count = 0;
  while (readdir(folder) != nullptr) {
    ++count;
  }
  (void)closedir(folder);
  return count - 3;  // the folder itself, "." and ".."
}
