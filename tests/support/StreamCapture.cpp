// SPDX-License-Identifier: MIT
#include "support/StreamCapture.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <utility>

StreamCapture::StreamCapture(int streamDescriptor)
    : stream(streamDescriptor), original(fcntl(streamDescriptor, F_DUPFD_CLOEXEC, 3)) {
  (void)std::fflush(nullptr);
  int ends[2] = {-1, -1};
  EXPECT_EQ(0, pipe2(ends, O_CLOEXEC));
  readEnd = ends[0];
  EXPECT_EQ(stream, dup2(ends[1], stream));
  (void)close(ends[1]);
}

StreamCapture::~StreamCapture() {
  (void)std::fflush(nullptr);
  EXPECT_EQ(stream, dup2(original, stream));
  (void)close(original);
  const std::string rest = Rest();
  (void)close(readEnd);
  if (testing::Test::HasFailure()) {
    (void)!write(stream, rest.data(), rest.size());
  }
}

std::string StreamCapture::NextLine() {
  size_t end = pending.find('\n');
  while (end == std::string::npos && ReadMore(20'000)) {
    end = pending.find('\n');
  }
  if (end == std::string::npos) {
    return std::exchange(pending, "");
  }
  std::string line = pending.substr(0, end + 1);
  pending.erase(0, end + 1);
  return line;
}

std::string StreamCapture::Rest() {
  while (ReadMore(0)) {
  }
  return std::exchange(pending, "");
}

bool StreamCapture::ReadMore(int milliseconds) {
  pollfd waiting{readEnd, POLLIN, 0};
  char chunk[4096];
  if (poll(&waiting, 1, milliseconds) != 1) {
    return false;
  }
  const ssize_t count = read(readEnd, chunk, sizeof chunk);
  if (count <= 0) {
    return false;
  }
  pending.append(chunk, static_cast<size_t>(count));
  return true;
}
