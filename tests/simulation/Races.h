// SPDX-License-Identifier: MIT
// Finds accesses that nothing orders, in whatever order they came: the service is compiled with
// -fsanitize=thread, and this is the runtime that it calls. An access is ordered behind another by
// the thread's own course, a mutex, an atomic object, the making of a thread and its join.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace simulation {

// Bytes that were asked for with `new` and have not come back: the simulation's own are among them.
size_t MemoryInUse();

class Races {
 public:
  // The run's own, or null where accesses are not watched.
  static Races* Watching();
  static void Watch(Races* races);

  void Reads(const void* address, size_t size, const void* by);
  void Writes(const void* address, size_t size, const void* by);

  // Memory that is given out anew: what was done with it before does not count.
  void Forget(const void* address, size_t size);

  // What the thread has done so far is ordered before what others do who acquire the same object.
  void Release(const void* object);
  void Acquire(const void* object);

  void Begins(int thread, int maker);
  void Joins(int thread);

 private:
  static constexpr size_t kThreads = 64;  // more are not watched
  static constexpr size_t kBlock = 64;    // most objects are small and lie far from each other
  static constexpr size_t kPage = 8 * kBlock;

  using Clock = uint32_t;
  using Clocks = std::array<Clock, kThreads>;

  // The last accesses to one byte.
  struct Access {
    Clock clock = 0;  // 0: none
    int thread = 0;
    const void* by = nullptr;
  };
  struct Cell {
    Access write;
    std::array<Access, 3> reads;
  };
  using Block = std::array<Cell, kBlock>;
  using Page = std::array<std::unique_ptr<Block>, kPage / kBlock>;  // null: never touched

  Clocks& ClocksOf(int thread) { return threads[static_cast<size_t>(thread) % kThreads]; }
  static void Merge(const Clocks& from, Clocks& into);
  bool IsOrdered(const Access& earlier, const Clocks& mine) const {
    return earlier.clock <= mine[static_cast<size_t>(earlier.thread) % kThreads];
  }
  static uintptr_t EndOfPage(uintptr_t address) { return (address / kPage + 1) * kPage; }
  static uintptr_t EndOfBlock(uintptr_t address) { return (address / kBlock + 1) * kBlock; }
  Block& BlockOf(uintptr_t address);
  template <class Look>
  void ForEachCell(const void* address, size_t size, Look look);
  bool IsPrivate(const void* address) const;
  [[noreturn]] static void Report(const char* what, const Access& earlier, const void* by);

  std::array<Clocks, kThreads> threads{};
  std::unordered_map<const void*, Clocks> objects;
  std::unordered_map<uintptr_t, Page> pages;
  bool growing = false;  // one of them does
  uintptr_t lastNumber = 0;
  Block* lastBlock = nullptr;
};

}  // namespace simulation
