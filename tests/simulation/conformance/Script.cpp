// SPDX-License-Identifier: MIT
#include "simulation/conformance/Script.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>
#include <vector>

namespace conformance {

std::string Told(const std::string& call, long result) {
  const int error = errno;
  return call + " " + (result == -1 ? strerrorname_np(error) : std::to_string(result));
}

std::string ToldByResult(const std::string& call, int result) {
  return call + " " + (result != 0 ? strerrorname_np(result) : "0");
}

std::string ReadOf(int number, size_t capacity) {
  std::vector<char> buffer(capacity);
  const ssize_t count = read(number, buffer.data(), capacity);
  std::string text = Told("read", count);
  return count > 0 ? text + " '" + std::string(buffer.data(), static_cast<size_t>(count)) + "'"
                   : text;
}

std::string WriteOf(int number, std::string_view bytes) {
  return Told("write", write(number, bytes.data(), bytes.size()));
}

std::string PollOf(int number) {
  constexpr std::pair<short, const char*> kEvents[] = {{POLLIN, "POLLIN"},
                                                       {POLLOUT, "POLLOUT"},
                                                       {POLLERR, "POLLERR"},
                                                       {POLLHUP, "POLLHUP"},
                                                       {POLLNVAL, "POLLNVAL"}};
  pollfd entry = {number, POLLIN | POLLOUT, 0};
  const int found = poll(&entry, 1, 0);
  std::string events;
  for (const auto& [event, name] : kEvents) {
    events += (entry.revents & event) != 0 ? (events.empty() ? "" : "+") + std::string(name) : "";
  }
  return events.empty() ? Told("poll", found) : "poll " + events;
}

void AwaitEvents(int number, short events) {
  pollfd entry = {number, events, 0};
  (void)poll(&entry, 1, -1);
}

const std::string& Endless() {
  static const std::string text = [] {
    std::string bytes;
    bytes.resize(20'000'000, 'x');
    return bytes;
  }();
  return text;
}

namespace {

std::atomic<int> interruptions = 0;

}  // namespace

template <class Side>
std::string TakesAllOf(Bench& bench, Side& side, size_t count) {
  std::string text;
  Until(bench, [&] {
    text += side.Takes();
    return text.size() >= count;
  });
  return text;
}

std::string TakesAll(Bench& bench, Device& device, size_t count) {
  return TakesAllOf(bench, device, count);
}

std::string TakesAll(Bench& bench, Peer& peer, size_t count) {
  return TakesAllOf(bench, peer, count);
}

std::string SeenBy(Bench& bench, Peer& peer) {
  std::string seen;
  Until(bench, [&] { return (seen = peer.Sees()) != "nothing"; });
  return seen;
}

Worker::Worker(Bench& ours, std::function<void()> wanted) : bench(ours), body(std::move(wanted)) {
  (void)pthread_create(&handle, nullptr, Run, this);
}

void* Worker::Run(void* worker) {
  auto& self = *static_cast<Worker*>(worker);
  self.thread = self.bench.OwnThread();
  self.body();
  return nullptr;
}

void Worker::AwaitIn(const char* call) {
  Until(bench, [&] { return thread != 0 && bench.WaitsIn(thread, call); });
}

void Worker::IsInterruptedBy(int signal) {
  const int before = interruptions;
  (void)pthread_kill(handle, signal);
  Until(bench, [before] { return interruptions != before; });
}

void Worker::AwaitEnd() {
  Until(bench, [&] { return thread != 0 && bench.HasEnded(thread); });
}

std::string Worker::Ends() {
  void* result = nullptr;
  Until(bench, [&] { return pthread_tryjoin_np(handle, &result) == 0; });
  return result == PTHREAD_CANCELED ? "cancelled" : "returned";
}

void Handle(int signal, void (*handler)(int), int flags, int alsoBlocked) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  (void)sigemptyset(&action.sa_mask);
  if (alsoBlocked != 0) {
    (void)sigaddset(&action.sa_mask, alsoBlocked);
  }
  (void)sigaction(signal, &action, nullptr);
}

void Ignored(int /*signal*/) { ++interruptions; }

void ChangeMask(int how, int signal) {
  sigset_t set;
  (void)sigemptyset(&set);
  (void)sigaddset(&set, signal);
  (void)pthread_sigmask(how, &set, nullptr);
}

int OpenRaw(const Device& device) {
  const int number = open(device.Node().c_str(), O_RDWR);
  termios attributes{};
  (void)tcgetattr(number, &attributes);
  cfmakeraw(&attributes);
  attributes.c_cc[VMIN] = 0;
  attributes.c_cc[VTIME] = 1;
  (void)tcsetattr(number, TCSANOW, &attributes);
  return number;
}

int Listening(uint16_t port) {
  const int number = socket(AF_INET, SOCK_STREAM, 0);
  const int on = 1;
  (void)setsockopt(number, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  (void)bind(number, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  (void)listen(number, 1);
  return number;
}

int Accepted(int listening) {
  sockaddr_in from{};
  socklen_t size = sizeof from;
  return accept(listening, reinterpret_cast<sockaddr*>(&from), &size);
}

}  // namespace conformance
