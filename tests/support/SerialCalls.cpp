// SPDX-License-Identifier: MIT
#include "support/SerialCalls.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <utility>

namespace {

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

std::mutex lock;  // guards the other two
State state;
bool isActive = false;

template <typename Field>
Field Get(Field State::*field) {
  const std::lock_guard guard(lock);
  return state.*field;
}

template <typename Field, typename Value>
void Set(Field State::*field, Value value) {
  const std::lock_guard guard(lock);
  state.*field = std::move(value);
}

bool IsFollowed(int descriptor) {
  const std::lock_guard guard(lock);
  return isActive && state.descriptors.contains(descriptor);
}

// Writes the call down. False, with errno set, when it is to fail.
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

// What takes the system calls' places.
extern "C" {

int __real_open(const char* path, int flags, ...);
int __real_close(int descriptor);
ssize_t __real_read(int descriptor, void* buffer, size_t count);
ssize_t __real_write(int descriptor, const void* bytes, size_t count);
int __real_tcgetattr(int descriptor, termios* attributes);
int __real_tcsetattr(int descriptor, int when, const termios* attributes);
int __real_tcflush(int descriptor, int queue);
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*routine)(void*), void* argument);
int __real_usleep(useconds_t microseconds);

int __wrap_open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  const auto paths = Get(&State::paths);
  const auto followed = paths.find(path);
  if (followed == paths.end()) {
    return __real_open(path, flags, mode);
  }
  const std::string text = flags == O_RDWR ? "O_RDWR" : std::to_string(flags);
  const bool ok = Called("open", followed->first + ", " + text);
  const int error = errno;
  if (const auto hook = Get(&State::onOpen)) {
    (*hook)();
  }
  errno = error;
  if (!ok) {
    return -1;
  }
  const int descriptor = __real_open(followed->second.c_str(), flags, mode);
  if (const auto hook = descriptor >= 0 ? Get(&State::onOpened) : nullptr) {
    (*hook)();
  }
  const std::lock_guard guard(lock);
  if (descriptor >= 0) {
    state.descriptors.insert(descriptor);
  }
  return descriptor;
}

// What open is called where files may be large.
int __wrap_open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return __wrap_open(path, flags, mode);
}

int __wrap_close(int descriptor) {
  if (IsFollowed(descriptor)) {
    if (!Called("close", "")) {
      return -1;
    }
    const std::lock_guard guard(lock);
    state.descriptors.erase(descriptor);  // the number may be another file's right after the call
  }
  return __real_close(descriptor);
}

ssize_t __wrap_read(int descriptor, void* buffer, size_t count) {
  if (IsFollowed(descriptor) && !Called("read", std::to_string(count))) {
    return -1;
  }
  return __real_read(descriptor, buffer, count);
}

ssize_t __wrap_write(int descriptor, const void* bytes, size_t count) {
  if (IsFollowed(descriptor)) {
    if (!Called("write", std::to_string(count))) {
      return -1;
    }
    if (const auto hook = Get(&State::onWrite)) {
      const ssize_t taken = (*hook)(count);
      return taken > 0 ? __real_write(descriptor, bytes, static_cast<size_t>(taken)) : taken;
    }
  }
  return __real_write(descriptor, bytes, count);
}

int __wrap_ioctl(int descriptor, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  if (IsFollowed(descriptor)) {
    const bool isClear = request == TIOCMBIC;
    const std::string bits = isClear ? std::to_string(*static_cast<const int*>(argument)) : "?";
    return Called("ioctl", (isClear ? "TIOCMBIC, " : "?, ") + bits) ? 0 : -1;
  }
  return static_cast<int>(syscall(SYS_ioctl, descriptor, request, argument));
}

// What ioctl is called where time has 64 bits on a 32-bit machine.
int __wrap___ioctl_time64(int descriptor, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  return __wrap_ioctl(descriptor, request, argument);
}

int __wrap_tcgetattr(int descriptor, termios* attributes) {
  if (IsFollowed(descriptor)) {
    if (!Called("tcgetattr", "")) {
      return -1;
    }
    if (const auto kept = Get(&State::attributes)) {
      *attributes = *kept;
      return 0;
    }
  }
  return __real_tcgetattr(descriptor, attributes);
}

int __wrap_tcsetattr(int descriptor, int when, const termios* attributes) {
  if (IsFollowed(descriptor)) {
    const bool ok = Called("tcsetattr", when == TCSANOW ? "TCSANOW" : std::to_string(when));
    const std::lock_guard guard(lock);
    state.settings.push_back(*attributes);
    if (!ok) {
      return -1;
    }
    if (state.attributes) {
      state.attributes = *attributes;
      // Reads wait as they are told to; the rest may be more than a pseudo-terminal can do.
      (void)__real_tcsetattr(descriptor, when, attributes);
      return 0;
    }
  }
  return __real_tcsetattr(descriptor, when, attributes);
}

int __wrap_tcflush(int descriptor, int queue) {
  if (IsFollowed(descriptor) &&
      !Called("tcflush", queue == TCIOFLUSH ? "TCIOFLUSH" : std::to_string(queue))) {
    return -1;
  }
  return __real_tcflush(descriptor, queue);
}

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*routine)(void*), void* argument) {
  (void)Called("pthread_create", "");
  if (Get(&State::refusesThreads)) {
    *thread = pthread_self();  // the C library, too, leaves a handle behind
    return EAGAIN;
  }
  return __real_pthread_create(thread, attributes, routine, argument);
}

int __wrap_usleep(useconds_t microseconds) {
  if (const auto hook = Get(&State::onSleep)) {
    (*hook)(microseconds);
  }
  return __real_usleep(microseconds);
}

}  // extern "C"
