// SPDX-License-Identifier: MIT
#include "simulation/conformance/RealBench.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>
#include <utility>

namespace conformance {
namespace {

// No cancellation point, unlike write.
void WriteText(int number, std::string_view text) {
  while (!text.empty()) {
    const long count = syscall(SYS_write, number, text.data(), text.size());
    text.remove_prefix(count > 0 ? static_cast<size_t>(count) : 0);
  }
}

// What a number that does not wait has now.
std::string WhatIsThere(int number) {
  char buffer[65536];
  const ssize_t count = read(number, buffer, sizeof buffer);
  return {buffer, count > 0 ? static_cast<size_t>(count) : 0};
}

class Pty : public Device {
 public:
  Pty() : far(MovedUp(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC))) {
    char path[64] = {};
    (void)grantpt(far);
    (void)unlockpt(far);
    (void)ptsname_r(far, path, sizeof path);
    node = path;
  }
  ~Pty() override { Pty::IsUnplugged(); }

  std::string Node() const override { return node; }
  void Sends(std::string_view bytes) override { WriteText(far, bytes); }
  std::string Takes() override { return WhatIsThere(far); }
  void IsUnplugged() override {
    if (far != -1) {
      (void)close(std::exchange(far, -1));
    }
  }

 private:
  int far;
  std::string node;
};

class Client : public Peer {
 public:
  explicit Client(int connected) : number(connected) {}
  ~Client() override { Client::Leaves(); }

  void Sends(std::string_view bytes) override { WriteText(number, bytes); }
  std::string Takes() override {
    std::string bytes(65536, '\0');
    const ssize_t count = recv(number, bytes.data(), bytes.size(), MSG_DONTWAIT);
    bytes.resize(count > 0 ? static_cast<size_t>(count) : 0);
    return bytes;
  }
  std::string Sees() override {
    char byte = 0;
    const ssize_t count = recv(number, &byte, 1, MSG_DONTWAIT | MSG_PEEK);
    if (count == -1) {
      return errno == ECONNRESET ? "reset" : "nothing";
    }
    return count == 0 ? "end" : "bytes";
  }
  void Finishes() override { (void)shutdown(number, SHUT_WR); }
  void Leaves() override {
    if (number != -1) {
      (void)close(std::exchange(number, -1));
    }
  }
  void Resets() override {
    const linger atOnce = {1, 0};
    (void)setsockopt(number, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    Leaves();
  }

 private:
  int number;
};

sockaddr_in AddressOf(in_addr_t host, uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(host);
  return address;
}

// A line of names, and below it one of numbers.
long OverflowsOfQueues() {
  std::ifstream file("/proc/net/netstat");
  std::string names;
  std::string numbers;
  (void)std::getline(file, names);
  (void)std::getline(file, numbers);
  std::istringstream name(names);
  std::istringstream number(numbers);
  for (std::string text, count; name >> text && number >> count;) {
    if (text == "ListenOverflows") {
      return std::stol(count);
    }
  }
  return 0;
}

// A pipe with its end for writing at `number`; the other end.
int PipeAt(int number) {
  const auto [reader, writer] = NewPipe();
  const int far = MovedUp(reader);
  if (writer != number) {
    (void)dup2(writer, number);
    (void)close(writer);
  }
  return far;
}

}  // namespace

std::array<int, 2> NewPipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    std::perror("pipe2");
    std::_Exit(2);
  }
  return ends;
}

int MovedUp(int number) {
  const int moved = fcntl(number, F_DUPFD_CLOEXEC, RealBench::kOwnNumbers);
  (void)close(number);
  return moved;
}

RealBench::RealBench(int wantedReport, Hold& tracers)
    : report(MovedUp(wantedReport)), hold(tracers) {
  (void)close_range(0, kOwnNumbers - 1, 0);
  (void)open("/dev/null", O_RDWR);
  outputReader = PipeAt(STDOUT_FILENO);
  (void)PipeAt(STDERR_FILENO);
  (void)unlink("/tmp/deviceinfo.txt");
}

void RealBench::Saw(const std::string& text) {
  WriteText(report, isFirst.exchange(false) ? text : "; " + text);
}

std::unique_ptr<Device> RealBench::PlugsIn() { return std::make_unique<Pty>(); }

std::unique_ptr<Peer> RealBench::Connects(uint16_t port, in_addr_t from) {
  const int number = MovedUp(socket(AF_INET, SOCK_STREAM, 0));
  const sockaddr_in own = AddressOf(from, 0);
  const sockaddr_in address = AddressOf(INADDR_LOOPBACK, port);
  if (bind(number, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0 ||
      connect(number, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    (void)close(number);
    return nullptr;
  }
  return std::make_unique<Client>(number);
}

// The kernel counts whom it lets wait: nothing else tells of it before a time is over.
bool RealBench::HasRoomFor(uint16_t port) {
  const long before = OverflowsOfQueues();
  const int number = MovedUp(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
  const sockaddr_in address = AddressOf(INADDR_LOOPBACK, port);
  (void)connect(number, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  pollfd entry = {number, POLLOUT, 0};
  int found = 0;
  while (found == 0 && OverflowsOfQueues() == before) {
    found = poll(&entry, 1, 1);
  }
  (void)close(number);
  return found == 1;
}

std::string RealBench::OutputTakes(size_t limit) {
  std::string bytes(limit, '\0');
  const ssize_t count = read(outputReader, bytes.data(), limit);
  bytes.resize(count > 0 ? static_cast<size_t>(count) : 0);
  return bytes;
}

void RealBench::OutputReaderLeaves() { (void)close(outputReader); }

void RealBench::Puts(const std::string& path, const std::string& text) {
  std::ofstream(path) << text;
}

void RealBench::SetsVariable(const std::string& name, const std::string& value) {
  (void)setenv(name.c_str(), value.c_str(), 1);
}

int RealBench::OpenNumbers() {
  int count = 0;
  for (int number = 0; number < kOwnNumbers; ++number) {
    count += fcntl(number, F_GETFD) != -1 ? 1 : 0;
  }
  return count;
}

void RealBench::HoldsDumps() { (void)mkfifo(kDumpGate, 0600); }

void RealBench::LetsDumpsEnd() {
  (void)close(open(kDumpGate, O_WRONLY | O_CLOEXEC));
  (void)unlink(kDumpGate);
}

void RealBench::Signals(int signal) { (void)kill(getpid(), signal); }

void RealBench::Pause() {
  const timespec pause{0, 1'000'000};
  (void)nanosleep(&pause, nullptr);
}

int RealBench::OwnThread() { return gettid(); }

bool RealBench::HasEnded(int thread) { return tgkill(getpid(), thread, 0) != 0; }

// "running", or the number of the call that it waits in.
bool RealBench::WaitsIn(int thread, const char* call) {
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/syscall");
  std::string number;
  return file >> number && number == std::to_string(NumberOf(call));
}

// It sleeps in no call until it is traced: that could be the very one.
void RealBench::HoldsAfter(const char* call) {
  hold.call = NumberOf(call);
  hold.thread = gettid();
  while (!hold.isTraced) {
    (void)sched_yield();
  }
}

bool RealBench::HasHeld() { return hold.isHeld; }

void RealBench::LetsGo() { hold.isLetGo = true; }

}  // namespace conformance
