// SPDX-License-Identifier: MIT
#pragma once

#include <boost/context/fiber.hpp>
#include <functional>
#include <memory>
#include <vector>

namespace simulation {

// A simulated thread's stack, and what C++ and the C library keep for each thread: this program's
// thread-local variables (the exceptions in flight are among them) and errno. All fibers run on the
// one real thread; a switch costs about as much as a function call.
class Fiber {
 public:
  static constexpr size_t kStackBytes = size_t{128} * 1024;

  // The stack on which the caller runs already.
  Fiber();
  // `body` runs at the first switch to it, and never returns.
  explicit Fiber(std::function<void()> body);
  // Of one that nobody will switch to again. What is on its stack is forgotten, not destroyed: the
  // thread has ended.
  ~Fiber();
  Fiber(const Fiber&) = delete;
  Fiber& operator=(const Fiber&) = delete;

  // Whether a thread-local variable of this program is there.
  static bool IsLocal(const void* address);

  // The return addresses on the stack of the one that runs, and of another one, which cannot be
  // switched to any more.
  static std::vector<void*> StackHere();
  std::vector<void*> Stack();

  // Goes on where `next` left off, until somebody switches back to this one, which is running.
  void SwitchTo(Fiber& next);

 private:
  const std::unique_ptr<char[]> stack;
  union {
    boost::context::fiber rest;  // never destroyed: that would unwind it
  };
  std::vector<char> locals;
  int error = 0;
};

}  // namespace simulation
