// SPDX-License-Identifier: MIT
#include "support/SerialCalls.h"

#include <cerrno>
#include <utility>

#include "support/SerialCallsState.h"

namespace serial_calls {

std::mutex lock;
State state;
bool isActive = false;

bool IsFollowed(int descriptor) {
  const std::lock_guard guard(lock);
  return isActive && state.descriptors.contains(descriptor);
}

bool Called(const std::string& name, const std::string& arguments) {
  const std::lock_guard guard(lock);
  state.calls.push_back({name + "(" + arguments + ")", std::chrono::steady_clock::now()});
  const auto failure = state.failures.find(name);
  if (failure == state.failures.end()) {
    return true;
  }
  if (failure->second.after > 0) {
    --failure->second.after;
    return true;
  }
  errno = failure->second.error;
  if (--failure->second.times == 0) {
    state.failures.erase(failure);
  }
  return false;
}

}  // namespace serial_calls

using serial_calls::Get;
using serial_calls::isActive;
using serial_calls::lock;
using serial_calls::State;
using serial_calls::state;

namespace {

template <typename Field, typename Value>
void Set(Field State::*field, Value value) {
  const std::lock_guard guard(lock);
  state.*field = std::move(value);
}

}  // namespace

SerialCalls::SerialCalls() {
  const std::lock_guard guard(lock);
  state = State{};
  isActive = true;
}

SerialCalls::~SerialCalls() {
  const std::lock_guard guard(lock);
  isActive = false;
  state = State{};
}

void SerialCalls::Follow(const std::string& path, const std::string& target) {
  const std::lock_guard guard(lock);
  state.paths[path] = target;
}

void SerialCalls::Fail(const std::string& name, int error, int times, int after) {
  const std::lock_guard guard(lock);
  state.failures[name] = {error, times, after};
}

void SerialCalls::KeepAttributes(const termios& before) { Set(&State::attributes, before); }
void SerialCalls::OnWrite(std::function<ssize_t(size_t)> hook) {
  Set(&State::onWrite, std::make_shared<std::function<ssize_t(size_t)>>(std::move(hook)));
}
void SerialCalls::OnOpen(std::function<void()> hook) {
  Set(&State::onOpen, std::make_shared<std::function<void()>>(std::move(hook)));
}
void SerialCalls::OnOpened(std::function<void()> hook) {
  Set(&State::onOpened, std::make_shared<std::function<void()>>(std::move(hook)));
}
void SerialCalls::OnSleep(std::function<void(unsigned)> hook) {
  Set(&State::onSleep, std::make_shared<std::function<void(unsigned)>>(std::move(hook)));
}
void SerialCalls::RefuseThreads() { Set(&State::refusesThreads, true); }

std::vector<std::string> SerialCalls::Texts() const {
  std::vector<std::string> texts;
  for (const SerialCall& call : Get(&State::calls)) {
    if (!call.text.starts_with("read(")) {
      texts.push_back(call.text);
    }
  }
  return texts;
}

std::vector<SerialCall> SerialCalls::Calls(const std::string& name) const {
  std::vector<SerialCall> calls = Get(&State::calls);
  std::erase_if(calls, [&](const SerialCall& call) { return !call.text.starts_with(name + "("); });
  return calls;
}

int SerialCalls::Count(const std::string& name) const {
  return static_cast<int>(Calls(name).size());
}

void SerialCalls::Forget() {
  const std::lock_guard guard(lock);
  state.calls.clear();
  state.settings.clear();
}

std::vector<termios> SerialCalls::Settings() const { return Get(&State::settings); }
termios SerialCalls::Attributes() const { return Get(&State::attributes).value(); }
