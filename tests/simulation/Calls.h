// SPDX-License-Identifier: MIT
// The service's calls, each replaced at link time: __wrap_NAME does what the simulated kernel does,
// or hands over to __real_NAME where no run is under way.
#pragma once

#include <cerrno>
#include <memory>
#include <string>

#include "simulation/Kernel.h"
#include "simulation/Machine.h"

// Declares both sides of a replaced function, and opens the definition of the replacement.
#define SIMULATED(result, name, ...)            \
  extern "C" result __real_##name(__VA_ARGS__); \
  extern "C" result __wrap_##name(__VA_ARGS__)

namespace simulation {

inline bool IsRunning() { return Kernel::Running() != nullptr; }

// As the C library tells it: -1 and errno, or the result.
inline long Told(Result result) {
  if (result < 0) {
    errno = static_cast<int>(-result);
    return -1;
  }
  return result;
}

// One call of the service, from its way in to its way out: both are points where others run.
class Call {
 public:
  enum Kind { kPlain, kCancellable };
  Call(const char* callName, Kind callKind, std::string details = "")
      : name(callName), kind(callKind), arguments(std::move(details)) {
    Kernel::Running()->Current().call = std::string(name) + "(" + arguments;
    if (kind == kCancellable) {
      Machine::Running()->oracle->MayWait(Kernel::Running()->Current().call);
    }
    Pass();
  }

  // The way out, with what the call comes to.
  long Gives(Result result) {
    Kernel& kernel = *Kernel::Running();
    if (kernel.IsTraced()) {
      kernel.Note(std::string(name) + "(" + arguments + ") = " + std::to_string(result));
    }
    Pass();
    kernel.Current().call.clear();
    return Told(result);
  }

 private:
  void Pass() const {
    if (kind == kCancellable) {
      Kernel::Running()->CancellationPoint();
    } else {
      Kernel::Running()->Point();
    }
  }

  const char* const name;
  const Kind kind;
  const std::string arguments;
};

// What a number leads to, kept for as long as the call takes. Of another kind than the call is for,
// or of none: null, and misuse unless the number is -1.
template <class Kind>
class Target {
 public:
  Target(int number, const char* call)
      : use(Machine::Running()->descriptors, number),
        any(Machine::Running()->descriptors.Find(number)),
        file(std::dynamic_pointer_cast<Kind>(any)) {
    if (file == nullptr && number != -1) {
      Kernel::Running()->Misuse(std::string(call) + " on number " + std::to_string(number) +
                                ", which is not open for it");
    }
  }
  explicit operator bool() const { return file != nullptr; }
  Kind* operator->() const { return file.get(); }
  Result Refusal() const { return any == nullptr ? -EBADF : -ENOTSOCK; }  // of what is null

 private:
  const Descriptors::Use use;
  const std::shared_ptr<File> any;
  const std::shared_ptr<Kind> file;
};

}  // namespace simulation
