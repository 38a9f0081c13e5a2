// SPDX-License-Identifier: MIT
// The least that a bridge can do: per port one thread for each direction, a read and a write, no
// framing, no log. What the service is measured against.
// usage: limit DEVICE TCP-PORT [DEVICE TCP-PORT]...
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace {

constexpr size_t kBufferBytes = 4096;  // what the service reads at a time

int Checked(int result, const char* call) {
  if (result < 0) {
    throw std::system_error(errno, std::generic_category(), call);
  }
  return result;
}

int OpenDevice(const std::string& path) {
  const int device = Checked(open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC), "open");
  termios attributes{};
  Checked(tcgetattr(device, &attributes), "tcgetattr");
  cfmakeraw(&attributes);
  Checked(tcsetattr(device, TCSANOW, &attributes), "tcsetattr");
  return device;
}

int AcceptOne(uint16_t port) {
  const int listening = Checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
  const int on = 1;
  Checked(setsockopt(listening, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on), "SO_REUSEADDR");
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  Checked(bind(listening, reinterpret_cast<sockaddr*>(&address), sizeof address), "bind");
  Checked(listen(listening, 1), "listen");
  return Checked(accept(listening, nullptr, nullptr), "accept");
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
