// SPDX-License-Identifier: MIT
#include "Input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "relay/Error.h"
#include "relay/Text.h"

namespace {

constexpr size_t kPiece = 65536;

[[noreturn]] void Fail(const std::string& what) {
  throw relay::Error(relay::ErrorKind::kSystem,
                     what + ": " + std::generic_category().message(errno), errno);
}

}  // namespace

Input::Input(const std::string& path)
    : name(path == "-" ? "standard input" : relay::Escape(path)),
      descriptor(path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
  if (descriptor == -1) {
    Fail("cannot open " + name);
  }
  // Reading nothing tells of a folder, or a closed standard input, before anything else is done.
  char nothing;
  if (read(descriptor, &nothing, 0) < 0) {
    const int reason = errno;
    Close();
    errno = reason;
    Fail("cannot read " + name);
  }
}

Input::~Input() { Close(); }

void Input::Close() const {
  if (descriptor != STDIN_FILENO) {
    (void)close(descriptor);
  }
}

std::string Input::Read() {
  std::string piece(kPiece, '\0');
  ssize_t count;
  do {
    count = read(descriptor, piece.data(), piece.size());
  } while (count < 0 && errno == EINTR);
  if (count < 0 && errno != EAGAIN) {
    Fail("cannot read " + name);
  }
  piece.resize(count > 0 ? static_cast<size_t>(count) : 0);
  return piece;
}

unsigned long long Input::Size() const {
  struct stat about {};
  const bool isFile = fstat(descriptor, &about) == 0 && S_ISREG(about.st_mode);
  return isFile ? static_cast<unsigned long long>(about.st_size) : 0;
}

std::string ReadAll(const std::string& path) {
  Input input(path);
  std::string all;
  for (std::string piece = input.Read(); !piece.empty(); piece = input.Read()) {
    all += piece;
  }
  return all;
}
