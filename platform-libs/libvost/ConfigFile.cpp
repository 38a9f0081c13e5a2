// SPDX-License-Identifier: MIT
#include "libvost/ConfigFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace vost {
namespace {

constexpr const char* kDefaultPath = "/etc/vost.conf";
constexpr std::size_t kPiece = 4096;

// A thread may be cancelled while it reads; the descriptor is closed then too.
class Descriptor {
 public:
  // O_NONBLOCK: opening a FIFO that nobody writes to must not wait. O_NOCTTY: a terminal must not
  // become the process's own.
  explicit Descriptor(const char* path)
      : number(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (number >= 0) {
      close(number);
    }
  }

  int Number() const { return number; }

 private:
  int number;
};

FileText Unreadable(const char* problem) { return {FileState::kUnreadable, {}, problem}; }

FileText Failed(int error) {
  if (error == ENOENT || error == ENOTDIR) {
    return {};
  }
  const char* reason = strerrordesc_np(error);
  return Unreadable(reason != nullptr ? reason : "unknown error");
}

}  // namespace

const char* ConfigPath() {
  const char* path = std::getenv("VOST_CONFIG");
  return path != nullptr && *path != '\0' ? path : kDefaultPath;
}

FileText ReadConfig(const char* path) {
  const Descriptor file(path);
  struct stat status = {};
  if (file.Number() < 0 || fstat(file.Number(), &status) != 0) {
    return Failed(errno);
  }
  if (!S_ISREG(status.st_mode)) {
    return Unreadable("not a regular file");
  }
  // In pieces, and counted here: a file can grow meanwhile.
  std::string text;
  std::array<char, kPiece> piece;
  while (text.size() <= kLargestFile) {
    const ssize_t count = read(file.Number(), piece.data(), piece.size());
    if (count == 0) {
      return {FileState::kRead, std::move(text), nullptr};
    }
    if (count > 0) {
      text.append(piece.data(), static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      return Failed(errno);
    }
  }
  return Unreadable("larger than 65536 bytes");
}

}  // namespace vost
