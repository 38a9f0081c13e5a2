// SPDX-License-Identifier: MIT
#include "simulation/Races.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>

#include "simulation/Kernel.h"

namespace simulation {
namespace {

Races* watching = nullptr;

extern "C" const char __executable_start;

// As addr2line wants it.
std::string Place(const void* by) {
  char text[32];
  (void)snprintf(
      text, sizeof text, "0x%" PRIxPTR,
      reinterpret_cast<uintptr_t>(by) - reinterpret_cast<uintptr_t>(&__executable_start));
  return text;
}

int Me() { return Kernel::Running()->Current().number; }

}  // namespace

Races* Races::Watching() { return watching; }

void Races::Watch(Races* races) { watching = races; }

void Races::Merge(const Clocks& from, Clocks& into) {
  for (size_t i = 0; i < kThreads; ++i) {
    into[i] = std::max(into[i], from[i]);
  }
}

Races::Block& Races::BlockOf(uintptr_t address) {
  const uintptr_t number = address / kBlock;
  if (lastBlock == nullptr || number != lastNumber) {
    growing = true;
    std::unique_ptr<Block>& block = pages[address / kPage][address % kPage / kBlock];
    if (block == nullptr) {
      block = std::make_unique<Block>();
    }
    growing = false;
    lastBlock = block.get();
    lastNumber = number;
  }
  return *lastBlock;
}

template <class Look>
void Races::ForEachCell(const void* address, size_t size, Look look) {
  auto at = reinterpret_cast<uintptr_t>(address);
  const uintptr_t end = at + size;
  while (at < end) {
    Block& block = BlockOf(at);
    for (const uintptr_t next = std::min(end, EndOfBlock(at)); at < next; ++at) {
      look(block[at % kBlock]);
    }
  }
}

// What lies on the thread's own stack is nobody else's, or is handed over with a lock anyway. What
// each thread has of its own lies at the same address for all.
bool Races::IsPrivate(const void* address) const {
  const Thread& me = Kernel::Running()->Current();
  const auto at = reinterpret_cast<uintptr_t>(address);
  const auto base = reinterpret_cast<uintptr_t>(me.stackBase);
  return (at <= base && at + Fiber::kStackBytes > base) || Fiber::IsLocal(address) ||
         address == &errno;
}

// Not where the memory is: another run has it elsewhere.
void Races::Report(const char* what, const Access& earlier, const void* by) {
  const Thread* const other = Kernel::Running()->Find(earlier.thread);
  Kernel::Running()->Defect(std::string("a race: ") + what + " at " + Place(by) +
                            ", and an access of " + (other != nullptr ? other->name : "?") +
                            " at " + Place(earlier.by));
}

void Races::Reads(const void* address, size_t size, const void* by) {
  if (IsPrivate(address)) {
    return;
  }
  const int me = Me();
  const Clocks& mine = ClocksOf(me);
  const Access read = {mine[static_cast<size_t>(me) % kThreads], me, by};
  ForEachCell(address, size, [&](Cell& cell) {
    if (!IsOrdered(cell.write, mine)) {
      Report("a read", cell.write, by);
    }
    // In the place of an own earlier read, else of the oldest.
    auto place = std::find_if(cell.reads.begin(), cell.reads.end(), [me](const Access& earlier) {
      return earlier.clock == 0 || earlier.thread == me;
    });
    if (place == cell.reads.end()) {
      std::rotate(cell.reads.begin(), cell.reads.begin() + 1, cell.reads.end());
      place = cell.reads.end() - 1;
    }
    *place = read;
  });
}

void Races::Writes(const void* address, size_t size, const void* by) {
  if (IsPrivate(address)) {
    return;
  }
  const int me = Me();
  const Clocks& mine = ClocksOf(me);
  const Access write = {mine[static_cast<size_t>(me) % kThreads], me, by};
  ForEachCell(address, size, [&](Cell& cell) {
    if (!IsOrdered(cell.write, mine)) {
      Report("a write", cell.write, by);
    }
    for (const Access& read : cell.reads) {
      if (!IsOrdered(read, mine)) {
        Report("a write", read, by);
      }
    }
    cell = {write, {}};
  });
}

void Races::Forget(const void* address, size_t size) {
  if (growing) {
    return;  // what the tables below let go of was never watched
  }
  auto at = reinterpret_cast<uintptr_t>(address);
  const uintptr_t end = at + size;
  while (at < end) {
    const auto page = pages.find(at / kPage);
    if (page == pages.end()) {
      at = EndOfPage(at);
      continue;
    }
    const uintptr_t next = std::min(end, EndOfBlock(at));
    if (const std::unique_ptr<Block>& block = page->second[at % kPage / kBlock]) {
      std::fill_n(&(*block)[at % kBlock], next - at, Cell{});
    }
    at = next;
  }
}

void Races::Release(const void* object) {
  const int me = Me();
  Clocks& mine = ClocksOf(me);
  growing = true;
  Clocks& its = objects[object];
  growing = false;
  Merge(mine, its);
  ++mine[static_cast<size_t>(me) % kThreads];
}

void Races::Acquire(const void* object) {
  const auto found = objects.find(object);
  if (found != objects.end()) {
    Merge(found->second, ClocksOf(Me()));
  }
}

void Races::Begins(int thread, int maker) {
  Clocks& its = ClocksOf(thread);
  if (maker != 0) {
    Clocks& makers = ClocksOf(maker);
    Merge(makers, its);
    ++makers[static_cast<size_t>(maker) % kThreads];
  }
  ++its[static_cast<size_t>(thread) % kThreads];
}

void Races::Joins(int thread) { Merge(ClocksOf(thread), ClocksOf(Me())); }

}  // namespace simulation
