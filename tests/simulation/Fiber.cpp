// SPDX-License-Identifier: MIT
#include "simulation/Fiber.h"

#include <execinfo.h>
#include <link.h>

#include <algorithm>
#include <boost/context/preallocated.hpp>
#include <cerrno>
#include <memory>
#include <utility>

extern "C" int __real_backtrace(void** frames, int capacity);

namespace simulation {
namespace {

constexpr int kMostFrames = 64;

// Where the thread-local variables of this program lie on the real thread, and their first values.
struct Locals {
  char* begin = nullptr;
  size_t size = 0;
  const char* image = nullptr;
  size_t imageSize = 0;
};

int FindLocals(dl_phdr_info* object, size_t /*size*/, void* result) {
  for (int i = 0; i < object->dlpi_phnum; ++i) {
    const ElfW(Phdr)& header = object->dlpi_phdr[i];
    if (header.p_type == PT_TLS) {
      *static_cast<Locals*>(result) = {
          static_cast<char*>(object->dlpi_tls_data), header.p_memsz,
          reinterpret_cast<const char*>(object->dlpi_addr + header.p_vaddr), header.p_filesz};
    }
  }
  return 1;  // the program itself comes first
}

const Locals& OwnLocals() {
  static const Locals found = [] {
    Locals locals;
    (void)dl_iterate_phdr(FindLocals, &locals);
    return locals;
  }();
  return found;
}

std::vector<char> FirstLocals() {
  const Locals& own = OwnLocals();
  std::vector<char> locals(own.size);
  std::copy_n(own.image, own.imageSize, locals.begin());
  return locals;
}

}  // namespace

// The owner of the memory is the Fiber.
struct BorrowedStack {
  // cppcheck-suppress unusedFunction ; the library calls it
  void deallocate(boost::context::stack_context& /*stack*/) const {}
};

boost::context::preallocated WholeOf(char* stack) {
  boost::context::stack_context context;
  context.size = Fiber::kStackBytes;
  context.sp = stack + context.size;
  return {context.sp, context.size, context};
}

Fiber::Fiber() : rest(), locals(OwnLocals().size) {}

Fiber::Fiber(std::function<void()> body)
    : stack(new char[kStackBytes]),
      rest(std::allocator_arg, WholeOf(stack.get()), BorrowedStack(),
           [body = std::move(body)](boost::context::fiber&& origin) {
             // Never empty: whoever switches here leaves its own rest behind in SwitchTo.
             body();
             return std::move(origin);
           }),
      locals(FirstLocals()) {}

Fiber::~Fiber() {}  // NOLINT(modernize-use-equals-default): the member of a union forbids that

bool Fiber::IsLocal(const void* address) {
  const Locals& own = OwnLocals();
  return address >= own.begin && address < own.begin + own.size;
}

std::vector<void*> Fiber::StackHere() {
  std::vector<void*> frames(kMostFrames);
  frames.resize(static_cast<size_t>(__real_backtrace(frames.data(), kMostFrames)));
  return frames;
}

std::vector<void*> Fiber::Stack() {
  std::vector<void*> frames;
  rest = std::move(rest).resume_with([&frames](boost::context::fiber&& asker) {
    frames = StackHere();
    return std::move(asker).resume();
  });
  return frames;
}

void Fiber::SwitchTo(Fiber& next) {
  const Locals& own = OwnLocals();
  error = errno;
  std::copy_n(own.begin, own.size, locals.begin());
  std::copy_n(next.locals.begin(), own.size, own.begin);
  (void)std::move(next.rest).resume_with([this](boost::context::fiber&& here) {
    rest = std::move(here);
    return boost::context::fiber{};
  });
  // Again here: whoever switched back has put this fiber's variables in place.
  errno = error;
}

}  // namespace simulation
