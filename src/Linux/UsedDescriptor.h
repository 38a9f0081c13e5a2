// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>

// A descriptor that is closed while calls on it are under way, by another thread or by a signal
// handler. The kernel ends no call by that, but it gives the number away at once: a thread that has
// read the number and not called yet would meet a stranger's file. Here the number goes back when
// the last use has ended.
// Threads: any, and signal handlers. Lock-free; allocates nothing.
class CUsedDescriptor {
 public:
  CUsedDescriptor() = default;
  ~CUsedDescriptor() { Close(); }  // no use is left
  CUsedDescriptor(const CUsedDescriptor&) = delete;
  CUsedDescriptor& operator=(const CUsedDescriptor&) = delete;

  // Takes over an open number. False, and nothing is taken, when there is one already, or the last
  // use of an earlier one has not ended.
  bool Set(int number);

  // Nothing uses it from now on.
  void Close();

  bool IsOpen() const;

  // For the time of one call. Also a cancellation ends it.
  class CUse {
   public:
    explicit CUse(CUsedDescriptor& used) : descriptor(used), number(used.BeginUse()) {}
    ~CUse() {
      if (number != -1) {
        descriptor.EndUse();
      }
    }
    CUse(const CUse&) = delete;
    CUse& operator=(const CUse&) = delete;

    // -1: it is closed.
    int Number() const { return number; }

   private:
    CUsedDescriptor& descriptor;
    const int number;
  };

 private:
  // From the lowest bit: the number and one, 0 for none; how many use it; whether it is closed.
  // Room for numbers up to 8 million, where the lowest free one is given to a process that has some
  // dozens open; and for 255 uses at once, one for each of about eight threads.
  using State = uint32_t;
  static_assert(std::atomic<State>::is_always_lock_free);  // or no signal handler may close it
  static constexpr State kNone = 0;
  static constexpr State kNumber = (State{1} << 23) - 1;
  static constexpr State kOneUse = State{1} << 23;
  static constexpr State kUses = State{255} << 23;
  static constexpr State kClosed = State{1} << 31;

  static int NumberIn(State state) { return static_cast<int>(state & kNumber) - 1; }

  int BeginUse();
  void EndUse();
  [[gnu::cold]] void GiveBack(State state);

  std::atomic<State> current{kNone};
};
