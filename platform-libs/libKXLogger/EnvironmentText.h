// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdlib>

namespace kxlogger {

// A variable of the environment, read once. Only the pointer is kept: a text of the environment
// stays where it is when the variable changes later.
// Threads: any number, and signal handlers; who comes first decides.
class EnvironmentText {
 public:
  explicit constexpr EnvironmentText(const char* variable) : name(variable) {}

  // Empty when unset.
  const char* Get() {
    const char* known = text.load(std::memory_order_acquire);
    if (known != nullptr) {
      return known;
    }
    const char* found = std::getenv(name);
    if (found == nullptr) {
      found = "";
    }
    return text.compare_exchange_strong(known, found, std::memory_order_acq_rel) ? found : known;
  }

 private:
  static_assert(std::atomic<const char*>::is_always_lock_free);

  const char* name;
  std::atomic<const char*> text = nullptr;
};

}  // namespace kxlogger
