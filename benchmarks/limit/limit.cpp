// SPDX-License-Identifier: MIT
// The least that a bridge can do: per port one thread for each direction, a read and a write, no
// framing, no log. What the service is measured against.
// usage: limit DEVICE TCP-PORT [DEVICE TCP-PORT]...
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "AcceptOne.h"
#include "client/Checked.h"

namespace {

constexpr size_t kBufferBytes = 4096;  // what the service reads at a time

int OpenDevice(const std::string& path) {
  const int device = Checked(open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC), "open");
  termios attributes{};
  Checked(tcgetattr(device, &attributes), "tcgetattr");
  cfmakeraw(&attributes);
  Checked(tcsetattr(device, TCSANOW, &attributes), "tcsetattr");
  return device;
}

void Copy(int from, int to) {
  std::vector<uint8_t> buffer(kBufferBytes);
  for (;;) {
    const ssize_t count = read(from, buffer.data(), buffer.size());
    if (count <= 0) {
      std::exit(0);
    }
    for (ssize_t done = 0; done < count;) {
      const ssize_t written = write(to, buffer.data() + done, static_cast<size_t>(count - done));
      if (written < 0) {
        std::exit(1);
      }
      done += written;
    }
  }
}

void Bridge(const std::string& path, uint16_t port) {
  const int connection = AcceptOne(port);
  const int device = OpenDevice(path);
  std::thread outward(Copy, connection, device);
  Copy(device, connection);
  outward.join();
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  if (words.size() < 2 || words.size() % 2 != 0) {
    std::cerr << "usage: limit DEVICE TCP-PORT [DEVICE TCP-PORT]...\n";
    return 2;
  }
  try {
    std::vector<std::thread> others;
    for (size_t i = 2; i < words.size(); i += 2) {
      others.emplace_back(Bridge, words[i], static_cast<uint16_t>(std::stoul(words[i + 1])));
    }
    Bridge(words[0], static_cast<uint16_t>(std::stoul(words[1])));
  } catch (const std::exception& error) {
    std::cerr << "limit: " << error.what() << '\n';
    return 1;
  }
}
