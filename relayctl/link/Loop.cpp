// SPDX-License-Identifier: MIT
#include "link/Loop.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>

#include "Duration.h"

namespace {

constexpr int kEndSignals[] = {SIGINT, SIGTERM, SIGHUP};

}  // namespace

Loop::Loop() {
  for (const int signal : kEndSignals) {
    OnSignal(signal, [this, signal] { ended = signal; });
  }
}

Loop::~Loop() {
  sigset_t all;
  sigemptyset(&all);
  for (const auto& entry : signalActions) {
    sigaddset(&all, entry.first);
  }
  (void)close(signals);
  (void)sigprocmask(SIG_UNBLOCK, &all, nullptr);
}

void Loop::OnSignal(int signal, std::function<void()> action) {
  signalActions[signal] = std::move(action);
  sigset_t all;
  sigemptyset(&all);
  for (const auto& entry : signalActions) {
    sigaddset(&all, entry.first);
  }
  (void)sigprocmask(SIG_BLOCK, &all, nullptr);
  const int next = signalfd(signals, &all, SFD_NONBLOCK | SFD_CLOEXEC);
  if (next == -1) {
    throw relay::Error(relay::ErrorKind::kSystem, "cannot wait for signals", errno);
  }
  signals = next;
}

void Loop::Watch(int descriptor, std::function<short()> wanted, std::function<void(short)> action) {
  watched[descriptor] = {std::move(wanted), std::move(action)};
}

void Loop::When(Due due, std::function<void()> action) {
  timed.push_back({std::move(due), std::move(action)});
}

int Loop::TimeToWait() const {
  std::optional<relay::Millis> wait;
  const auto add = [&wait](relay::Millis time) { wait = wait ? std::min(*wait, time) : time; };
  for (const relay::Client* client : clients) {
    if (const auto due = client->TimeUntilDue()) {
      add(*due);
    }
  }
  for (const Timed& entry : timed) {
    if (const auto due = entry.due()) {
      add(std::max(std::chrono::ceil<relay::Millis>(*due - relay::Clock::now()), relay::Millis(0)));
    }
  }
  return wait ? static_cast<int>(std::min<relay::Millis::rep>(wait->count(), INT_MAX)) : -1;
}

void Loop::TakeSignals() {
  signalfd_siginfo info;
  while (read(signals, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
    const auto found = signalActions.find(static_cast<int>(info.ssi_signo));
    if (found != signalActions.end()) {
      found->second();
    }
  }
}

void Loop::RunTimed() {
  for (size_t i = 0; i < timed.size(); ++i) {  // an action may add another
    const auto due = timed[i].due();
    if (due && *due <= relay::Clock::now()) {
      const auto action = timed[i].action;
      action();
    }
  }
}

void Loop::Wait() {
  std::vector<pollfd> ready = {{signals, POLLIN, 0}};
  for (const relay::Client* client : clients) {
    if (client->Descriptor() != -1) {
      ready.push_back({client->Descriptor(), client->PollEvents(), 0});
    }
  }
  const size_t first = ready.size();
  for (const auto& entry : watched) {
    if (const short events = entry.second.wanted()) {
      ready.push_back({entry.first, events, 0});
    }
  }
  if (poll(ready.data(), ready.size(), TimeToWait()) < 0) {
    return;  // interrupted: everything is asked again
  }
  TakeSignals();
  for (size_t i = 0; i < clients.size(); ++i) {  // an event of one may end the service of all
    clients[i]->Process();
  }
  for (size_t i = first; i < ready.size(); ++i) {
    const auto found = watched.find(ready[i].fd);
    if (ready[i].revents != 0 && found != watched.end()) {
      const auto action = found->second.action;
      action(ready[i].revents);
    }
  }
  RunTimed();
}

void Loop::MustBeLinked() const {
  for (const relay::Client* client : clients) {
    if (client->IsOver()) {
      throw client->Failure()
          ? *client->Failure()
          : relay::Error(relay::ErrorKind::kLinkEnded, "the link is not started");
    }
  }
}

int Loop::Run(const std::function<bool()>& done) {
  while (ended == 0 && !done()) {
    MustBeLinked();
    Wait();
  }
  return ended;
}

int Loop::RunFor(double seconds, const std::function<bool()>& done) {
  if (seconds <= 0) {
    return Run(done);
  }
  const auto end = relay::Clock::now() + FromSeconds(seconds);
  When([end] { return end; }, [] {});
  return Run([&] { return done() || relay::Clock::now() >= end; });
}
