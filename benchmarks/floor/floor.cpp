// SPDX-License-Identifier: MIT
// The floor under the service: the same system calls in the same order, and next to nothing between
// them. It takes for granted what its client sends: named ports that the last character tells
// apart, one block in each data command, no close. Its log line is always the same, its dumps come
// from a table, and a packet is sent from where its bytes were read to.
// usage: floor LOG-FILE
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "AcceptOne.h"
#include "client/Checked.h"
#include "protocol/WireFormat.h"

namespace {

constexpr uint16_t kTcpPort = 60004;
constexpr size_t kReadBytes = 4096;            // what the service reads at a time
constexpr useconds_t kLookInterval = 250'000;  // how often its main thread looks
constexpr size_t kBlockHead = 1 + 1 + 2;       // block count, type, data length

constexpr std::string_view kUsbPort = "#USBSerialPort";
constexpr std::string_view kLogLine =
    "2026-11-20T20:30:01.123456Z 3 SerialPortHandler SerialPortHandler.cpp:225 4 "
    "data command proc.\n";

void PutNumber(uint8_t* place, size_t number) {
  place[0] = HighByte(static_cast<uint16_t>(number));
  place[1] = LowByte(static_cast<uint16_t>(number));
}

using Shown = std::array<char, 4>;

constexpr std::array<Shown, 256> EachByteShown() {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::array<Shown, 256> table{};
  for (size_t byte = 0; byte < table.size(); ++byte) {
    table[byte] = {kDigits[byte >> 4], kDigits[byte & 0xF], ' ', '\n'};
  }
  return table;
}

constexpr std::array<Shown, 256> kShown = EachByteShown();

// "Received(2):0D 0A \n". Each byte is four characters, of which the next one's go over the last.
class Dump {
 public:
  Dump() { std::copy(kHead.begin(), kHead.end(), text.begin()); }

  std::string_view Of(const uint8_t* data, size_t count) {
    char* const digits = text.data() + kHead.size();
    char* out = std::to_chars(digits, digits + kMostDigits, count).ptr;
    *out++ = ')';
    *out++ = ':';
    for (const uint8_t byte : std::span(data, count)) {
      std::copy(kShown[byte].begin(), kShown[byte].end(), out);
      out += 3;
    }
    return {text.data(), static_cast<size_t>(out - text.data()) + 1};
  }

 private:
  static constexpr std::string_view kHead = "Received(";
  static constexpr size_t kMostDigits = 4;
  std::array<char, 16 + 3 * kReadBytes + 1> text{};
};

// A notification of one port: what is read into Data() is sent from there.
class Notification {
 public:
  explicit Notification(const std::string& name) : head(kNamedSize + name.size() + kBlockHead) {
    bytes[2] = kCommandData;
    bytes[3] = kNamedPort;
    PutNumber(&bytes[4], name.size());
    uint8_t* const behind = std::copy(name.begin(), name.end(), &bytes[kNamedSize]);
    behind[0] = 1;
    behind[1] = kReceivedDataBlock;
  }

  uint8_t* Data() { return &bytes[head]; }

  void Send(int connection, size_t count) {
    PutNumber(bytes.data(), head + count);
    PutNumber(&bytes[head - 2], count);
    Checked(send(connection, bytes.data(), head + count, 0), "send");
  }

 private:
  const size_t head;
  std::array<uint8_t, 64 + kReadBytes> bytes{};
};

bool IsHungUp(int device) {
  pollfd line = {device, 0, 0};
  return poll(&line, 1, 0) == 1;
}

void Forward(int device, int connection, const std::string& name) {
  Notification notification(name);
  Dump dump;
  for (;;) {
    const ssize_t count = read(device, notification.Data(), kReadBytes);
    if (count < 0 || (count == 0 && IsHungUp(device))) {
      return;
    }
    if (count > 0) {
      const auto size = static_cast<size_t>(count);
      const std::string_view text = dump.Of(notification.Data(), size);
      Checked(write(STDERR_FILENO, text.data(), text.size()), "write");
      notification.Send(connection, size);
    }
  }
}

void Run(const char* command) {
  if (std::system(command) != 0) {
    throw std::runtime_error(command);
  }
}

int OpenDevice(const std::string& path) {
  const int device = Checked(open(path.c_str(), O_RDWR), "open");
  Checked(fcntl(device, F_SETFD, FD_CLOEXEC), "fcntl");
  termios attributes{};
  for (int time = 0; time < 2; ++time) {  // raw mode, and then the settings
    Checked(tcgetattr(device, &attributes), "tcgetattr");
    cfmakeraw(&attributes);
    cfsetspeed(&attributes, B115200);
    attributes.c_cc[VMIN] = 0;
    attributes.c_cc[VTIME] = 1;
    Checked(tcsetattr(device, TCSANOW, &attributes), "tcsetattr");
  }
  Checked(tcflush(device, TCIOFLUSH), "tcflush");
  return device;
}

class Floor {
 public:
  Floor(int relay, int logFile) : connection(relay), log(logFile) {}

  // Until the peer goes.
  void Serve() {
    while (Receive(0, kLengthSize) &&
           Receive(kLengthSize, FromBytes(packet[0], packet[1]) - kLengthSize)) {
      Checked(write(log, kLogLine.data(), kLogLine.size()), "write");
      const uint16_t nameSize = FromBytes(packet[4], packet[5]);
      const char last = static_cast<char>(packet[kNamedSize + nameSize - 1]);
      int& device =
          devices[packet[kNamedSize + 1] == 'U' ? static_cast<size_t>(last - '0') + 1 : 0];
      if (packet[2] == kCommandOpen) {
        device = Open({reinterpret_cast<char*>(&packet[kNamedSize]), nameSize});
      } else {
        const size_t head = kNamedSize + nameSize + kBlockHead;
        const uint16_t count = FromBytes(packet[head - 2], packet[head - 1]);
        for (size_t done = 0; done < count;) {
          done += static_cast<size_t>(
              Checked(write(device, &packet[head + done], count - done), "write"));
        }
      }
    }
  }

 private:
  bool Receive(size_t from, size_t count) {
    while (count > 0) {
      const ssize_t came = recv(connection, &packet[from], count, 0);
      if (came <= 0) {
        return false;
      }
      from += static_cast<size_t>(came);
      count -= static_cast<size_t>(came);
    }
    return true;
  }

  int Open(const std::string& name) {
    std::string path = "/dev/ttyS2";
    if (name.starts_with(kUsbPort)) {
      Run("udevadm info --export-db > /tmp/floor-devices");
      Run("rm /tmp/floor-devices");
      path = "/dev/ttyUSB" + name.substr(kUsbPort.size());
    }
    const int device = OpenDevice(path);
    const size_t size = kNamedSize + name.size() + 2;
    PutNumber(packet.get(), size);
    PutNumber(&packet[size - 2], kStatusDone);
    Checked(send(connection, packet.get(), size, 0), "send");
    std::thread(Forward, device, connection, name).detach();
    return device;
  }

  const int connection;
  const int log;
  std::unique_ptr<uint8_t[]> packet =
      std::make_unique_for_overwrite<uint8_t[]>(kLengthSize + kMaxPacketSize);
  std::array<int, 7> devices{};
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: floor LOG-FILE\n";
    return 2;
  }
  try {
    const int log =
        Checked(open(argv[1], O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644), argv[1]);
    Floor floor(AcceptOne(kTcpPort), log);
    std::thread([&floor] {
      floor.Serve();
      std::_Exit(0);
    }).detach();
    for (;;) {
      (void)usleep(kLookInterval);
    }
  } catch (const std::exception& error) {
    std::cerr << "floor: " << error.what() << '\n';
    return 1;
  }
}
