// SPDX-License-Identifier: MIT
// What the rows have in common.
#pragma once

#include <pthread.h>

#include <functional>
#include <string>
#include <string_view>

#include "simulation/conformance/Bench.h"

namespace conformance {

// "read 3", or "read EIO" by errno.
std::string Told(const std::string& call, long result);
// "pthread_detach 0", or "pthread_detach EINVAL" by what it gave back.
std::string ToldByResult(const std::string& call, int result);

std::string ReadOf(int number, size_t capacity);
std::string WriteOf(int number, std::string_view bytes);
// "poll POLLIN+POLLHUP" or "poll 0", looking at all that there is, without waiting.
std::string PollOf(int number);
void AwaitEvents(int number, short events);

// A result that the row is not about.
template <class Result>
void Drop(const Result& /*result*/) {}

template <class Condition>
void Until(Bench& bench, Condition condition) {
  while (!condition()) {
    bench.Pause();
  }
}

// More than a line, a pipe or a connection holds.
const std::string& Endless();

// All that comes until there are so many.
std::string TakesAll(Bench& bench, Device& device, size_t count);
std::string TakesAll(Bench& bench, Peer& peer, size_t count);
// Waits until there is something to see.
std::string SeenBy(Bench& bench, Peer& peer);

// A second thread.
class Worker {
 public:
  Worker(Bench& ours, std::function<void()> wanted);
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  pthread_t Handle() const { return handle; }
  void AwaitIn(const char* call);
  // By a signal that is Ignored, and has been handled behind this. Before that it can still be seen
  // in the call that the signal interrupts.
  void IsInterruptedBy(int signal);
  void AwaitEnd();  // and does not join it
  // "returned" or "cancelled", once it has.
  std::string Ends();

 private:
  static void* Run(void* worker);

  Bench& bench;
  const std::function<void()> body;
  pthread_t handle = 0;
  volatile int thread = 0;
};

// Ignored only counts, so that the signal interrupts and does nothing else.
void Handle(int signal, void (*handler)(int), int flags = 0, int alsoBlocked = 0);
void Ignored(int signal);

void ChangeMask(int how, int signal);

// A number that no row opens.
constexpr int kNotOpen = 90;

// Numbers of a terminal in the service's mode, of a socket that listens, and of a connected one.
constexpr uint16_t kPort = 60004;
int OpenRaw(const Device& device);
int Listening(uint16_t port = kPort);
int Accepted(int listening);

}  // namespace conformance
