// SPDX-License-Identifier: MIT
// What SerialCalls and the functions that take the system calls' places share.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "support/SerialCalls.h"

namespace serial_calls {

struct Failure {
  int error;
  int times;
  int after;
};

struct State {
  std::map<std::string, std::string> paths;  // followed path → what is opened
  std::set<int> descriptors;
  std::vector<SerialCall> calls;
  std::vector<termios> settings;
  std::map<std::string, Failure> failures;
  std::optional<termios> attributes;
  // Shared, so that a hook keeps what it changes in itself.
  std::shared_ptr<std::function<ssize_t(size_t)>> onWrite;
  std::shared_ptr<std::function<void()>> onOpen;
  std::shared_ptr<std::function<void()>> onOpened;
  std::shared_ptr<std::function<void(unsigned)>> onSleep;
  bool refusesThreads = false;
};

extern std::mutex lock;  // guards the other two
extern State state;
extern bool isActive;

bool IsFollowed(int descriptor);

// Writes the call down. False, with errno set, when it is to fail.
bool Called(const std::string& name, const std::string& arguments);

template <typename Field>
Field Get(Field State::*field) {
  const std::lock_guard guard(lock);
  return state.*field;
}

}  // namespace serial_calls
