// SPDX-License-Identifier: MIT
// What code calls that is compiled with -fsanitize=thread: for each access that is not atomic, and
// in the place of each that is. An atomic access is a point where others may run.
#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>

#include "simulation/Kernel.h"
#include "simulation/Races.h"

using namespace simulation;

namespace {

size_t inUse = 0;  // bytes

#define CALLER __builtin_return_address(0)

void Read(const void* address, size_t size, const void* by) {
  if (Races* const races = Races::Watching()) {
    races->Reads(address, size, by);
  }
}

void Write(const void* address, size_t size, const void* by) {
  if (Races* const races = Races::Watching()) {
    races->Writes(address, size, by);
  }
}

// Of a whole buffer its beginning stands for the rest: what is kept of 64 kB would take most of a
// run's time.
size_t Watched(size_t size) { return std::min<size_t>(size, 256); }

// Sequentially consistent, whatever was asked for, except where nothing was: a relaxed access
// orders nothing.
bool Orders(int order) { return order != __ATOMIC_RELAXED; }

void Before(const volatile void* object, int order) {
  if (Races* const races = Races::Watching()) {
    Kernel::Running()->AtomicPoint();
    if (Orders(order)) {
      races->Acquire(const_cast<const void*>(object));
    }
  }
}

void Behind(const volatile void* object, int order) {
  Races* const races = Races::Watching();
  if (races != nullptr && Orders(order)) {
    races->Release(const_cast<const void*>(object));
  }
}

template <class Type>
Type Load(const volatile Type* at, int order) {
  Before(at, order);
  return __atomic_load_n(at, __ATOMIC_SEQ_CST);
}

template <class Type>
void Store(volatile Type* at, Type value, int order) {
  Before(at, __ATOMIC_RELAXED);
  __atomic_store_n(at, value, __ATOMIC_SEQ_CST);
  Behind(at, order);
}

// `change` gives the earlier value.
template <class Type, class Change>
Type Changed(volatile Type* at, int order, Change change) {
  Before(at, order);
  const Type earlier = change();
  Behind(at, order);
  return earlier;
}

template <class Type>
int CompareExchange(volatile Type* at, Type* expected, Type value, int order) {
  Before(at, order);
  const bool done =
      __atomic_compare_exchange_n(at, expected, value, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
  if (done) {
    Behind(at, order);
  }
  return done ? 1 : 0;
}

}  // namespace

extern "C" {

void __tsan_init() {}
void __tsan_func_entry(void*) {}
void __tsan_func_exit() {}

#define ACCESSES(size)                                                     \
  void __tsan_read##size(void* at) { Read(at, size, CALLER); }             \
  void __tsan_write##size(void* at) { Write(at, size, CALLER); }           \
  void __tsan_unaligned_read##size(void* at) { Read(at, size, CALLER); }   \
  void __tsan_unaligned_write##size(void* at) { Write(at, size, CALLER); } \
  void __tsan_volatile_read##size(void* at) { Read(at, size, CALLER); }    \
  void __tsan_volatile_write##size(void* at) { Write(at, size, CALLER); }
ACCESSES(1)
ACCESSES(2)
ACCESSES(4)
ACCESSES(8)
ACCESSES(16)

void __tsan_read_range(void* at, unsigned long size) { Read(at, size, CALLER); }
void __tsan_write_range(void* at, unsigned long size) { Write(at, size, CALLER); }
void __tsan_vptr_update(void** at, void* fresh) {
  if (*at != fresh) {
    Write(at, sizeof *at, CALLER);
  }
}
void __tsan_vptr_read(void** at) { Read(at, sizeof *at, CALLER); }

#define CHANGE(bits, name, builtin)                                                              \
  uint##bits##_t __tsan_atomic##bits##_##name(volatile uint##bits##_t* at, uint##bits##_t value, \
                                              int order) {                                       \
    return Changed(at, order, [=] { return builtin(at, value, __ATOMIC_SEQ_CST); });             \
  }
#define COMPARE_EXCHANGE(bits, kind)                                                        \
  int __tsan_atomic##bits##_compare_exchange_##kind(volatile uint##bits##_t* at,            \
                                                    uint##bits##_t* expected,               \
                                                    uint##bits##_t value, int order, int) { \
    return CompareExchange(at, expected, value, order);                                     \
  }
#define ATOMICS(bits)                                                                              \
  uint##bits##_t __tsan_atomic##bits##_load(const volatile uint##bits##_t* at, int order) {        \
    return Load(at, order);                                                                        \
  }                                                                                                \
  void __tsan_atomic##bits##_store(volatile uint##bits##_t* at, uint##bits##_t value, int order) { \
    Store(at, value, order);                                                                       \
  }                                                                                                \
  CHANGE(bits, exchange, __atomic_exchange_n)                                                      \
  CHANGE(bits, fetch_add, __atomic_fetch_add)                                                      \
  CHANGE(bits, fetch_sub, __atomic_fetch_sub)                                                      \
  CHANGE(bits, fetch_or, __atomic_fetch_or)                                                        \
  COMPARE_EXCHANGE(bits, strong)                                                                   \
  COMPARE_EXCHANGE(bits, weak)
ATOMICS(8)
ATOMICS(16)
ATOMICS(32)
ATOMICS(64)

void __tsan_atomic_thread_fence(int) {}
void __tsan_atomic_signal_fence(int) {}

// The handler of a signal may have interrupted just that.
static void ExpectNoHandler() {
  if (Races::Watching() != nullptr && Kernel::Running()->Current().handlers != 0) {
    Kernel::Running()->Defect("memory is asked for or given back in the handler of a signal");
  }
}

void* WatchedNew(size_t size) {
  ExpectNoHandler();
  return ::operator new(size);
}

void WatchedDelete(void* memory, size_t /*size*/) {
  ExpectNoHandler();
  ::operator delete(memory);
}

// What the standard library does in code that was compiled without us.
void* WatchedCopy(void* to, const void* from, size_t size) {
  Read(from, Watched(size), CALLER);
  Write(to, Watched(size), CALLER);
  return std::memcpy(to, from, size);
}

void* WatchedMove(void* to, const void* from, size_t size) {
  Read(from, Watched(size), CALLER);
  Write(to, Watched(size), CALLER);
  return std::memmove(to, from, size);
}

void* WatchedFill(void* to, int byte, size_t size) {
  Write(to, Watched(size), CALLER);
  return std::memset(to, byte, size);
}

using TreeNode = std::_Rb_tree_node_base;

// The nodes further up may be turned as well: the header and the parent stand for them.
void WatchedTreeInsert(bool isLeft, TreeNode* node, TreeNode* parent, TreeNode& header) {
  Write(&header, sizeof header, CALLER);
  Write(parent, sizeof *parent, CALLER);
  std::_Rb_tree_insert_and_rebalance(isLeft, node, parent, header);
}

TreeNode* WatchedTreeErase(TreeNode* node, TreeNode& header) {
  Write(&header, sizeof header, CALLER);
  Write(node, sizeof *node, CALLER);
  return std::_Rb_tree_rebalance_for_erase(node, header);
}

}  // extern "C"

size_t simulation::MemoryInUse() { return inUse; }

void* operator new(size_t size) {
  void* const memory = std::malloc(size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  inUse += malloc_usable_size(memory);
  return memory;
}

// Memory that comes back is nobody's past.
void operator delete(void* memory) noexcept {
  if (memory == nullptr) {
    return;
  }
  const size_t size = malloc_usable_size(memory);
  inUse -= size;
  if (Races* const races = Races::Watching()) {
    races->Forget(memory, size);
  }
  std::free(memory);
}
void operator delete(void* memory, size_t) noexcept { operator delete(memory); }
