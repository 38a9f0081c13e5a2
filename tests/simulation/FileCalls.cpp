// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "simulation/Calls.h"

using namespace simulation;

namespace {

Result OpenNode(const char* path, int flags) {
  Machine& machine = *Machine::Running();
  if ((flags & O_CREAT) != 0 && !machine.nodes.contains(path)) {
    machine.nodes[path] = std::make_shared<TextNode>();
  }
  const auto found = machine.nodes.find(path);
  if (found == machine.nodes.end()) {
    machine.oracle->FailsToOpen();
    return -ENOENT;
  }
  const std::shared_ptr<Node> node = found->second;
  std::shared_ptr<File> file;
  if (const Result result = node->Open(flags, file); result < 0) {
    return result;
  }
  file->blocks = (flags & O_NONBLOCK) == 0;
  file->canRead = (flags & O_ACCMODE) != O_WRONLY;
  file->canWrite = (flags & O_ACCMODE) != O_RDONLY;
  return machine.descriptors.Add(std::move(file));
}

// A close goes unnoticed until something happens with what was open.
short EventsOf(const pollfd& entry, const std::shared_ptr<File>& file) {
  if (file == nullptr) {
    return entry.fd < 0 ? 0 : POLLNVAL;
  }
  const int events = file->Ready() & (entry.events | POLLHUP | POLLERR);
  const bool isClosed = Machine::Running()->descriptors.Find(entry.fd) != file;
  return static_cast<short>(events != 0 && isClosed ? POLLNVAL : events);
}

}  // namespace

extern "C" int __real_open64(const char* path, int flags, ...);
extern "C" int __wrap_open64(const char* path, int flags, ...) {
  if (!IsRunning()) {
    std::va_list more;
    va_start(more, flags);
    const mode_t mode = va_arg(more, mode_t);
    va_end(more);
    return __real_open64(path, flags, mode);
  }
  Call call("open", Call::kCancellable, path);
  return static_cast<int>(call.Gives(OpenNode(path, flags)));
}

SIMULATED(int, close, int number) {
  if (!IsRunning()) {
    return __real_close(number);
  }
  Call call("close", Call::kCancellable, std::to_string(number));
  const Result result = Machine::Running()->descriptors.Close(number);
  if (result == -EBADF) {
    Kernel::Running()->Misuse("number " + std::to_string(number) + " is closed and not open");
  }
  return static_cast<int>(call.Gives(result));
}

SIMULATED(ssize_t, read, int number, void* buffer, size_t capacity) {
  if (!IsRunning()) {
    return __real_read(number, buffer, capacity);
  }
  Call call("read", Call::kCancellable, std::to_string(number));
  const Target<File> file(number, "read");
  return call.Gives(file && file->canRead ? file->Read(static_cast<char*>(buffer), capacity)
                                          : -EBADF);
}

SIMULATED(ssize_t, write, int number, const void* bytes, size_t count) {
  if (!IsRunning()) {
    return __real_write(number, bytes, count);
  }
  Call call("write", Call::kCancellable, std::to_string(number) + ", " + std::to_string(count));
  const Target<File> file(number, "write");
  const Result result =
      file && file->canWrite ? file->Write({static_cast<const char*>(bytes), count}) : -EBADF;
  if (result < 0) {
    // The service offers the same bytes at once, again and again. A second of that in as many calls
    // as it really takes would show nothing more.
    Kernel::Running()->Sleep(50 * kMillisecond);
  }
  return call.Gives(result);
}

SIMULATED(int, poll, pollfd* entries, nfds_t count, int timeout) {
  if (!IsRunning()) {
    return __real_poll(entries, count, timeout);
  }
  Kernel& kernel = *Kernel::Running();
  Call call("poll", Call::kCancellable, count > 0 ? std::to_string(entries[0].fd) : "");
  std::vector<std::shared_ptr<File>> files;
  for (nfds_t i = 0; i < count; ++i) {
    files.push_back(Machine::Running()->descriptors.Find(entries[i].fd));
  }
  int found = 0;
  const Condition ready = [&] {
    found = 0;
    for (nfds_t i = 0; i < count; ++i) {
      entries[i].revents = EventsOf(entries[i], files[i]);
      found += entries[i].revents != 0 ? 1 : 0;
    }
    return found > 0;
  };
  const Woken woken = kernel.WaitCancellably(
      ready, timeout < 0 ? kForever : kernel.Now() + timeout * kMillisecond, Waits::kInterruptibly);
  return static_cast<int>(call.Gives(woken == Woken::kSignal ? -EINTR : found));
}

extern "C" int __real_fcntl64(int number, int command, ...);
extern "C" int __wrap_fcntl64(int number, int command, ...) {
  std::va_list more;
  va_start(more, command);
  const long argument = va_arg(more, long);
  va_end(more);
  if (!IsRunning()) {
    return __real_fcntl64(number, command, argument);
  }
  Call call("fcntl", Call::kPlain, std::to_string(number));
  Descriptors& descriptors = Machine::Running()->descriptors;
  // A socket that could not be made is not asked whether it is there.
  std::shared_ptr<File> file = descriptors.Find(number);
  if (file == nullptr) {
    return static_cast<int>(call.Gives(-EBADF));
  }
  if (command == F_DUPFD_CLOEXEC) {
    return static_cast<int>(
        call.Gives(descriptors.Add(std::move(file), static_cast<int>(argument))));
  }
  return static_cast<int>(call.Gives(0));
}

SIMULATED(int, dup3, int from, int to, int flags) {
  if (!IsRunning()) {
    return __real_dup3(from, to, flags);
  }
  Call call("dup3", Call::kPlain, std::to_string(from) + ", " + std::to_string(to));
  Descriptors& descriptors = Machine::Running()->descriptors;
  std::shared_ptr<File> file = descriptors.Find(from);
  if (from == to) {
    return static_cast<int>(call.Gives(-EINVAL));
  }
  if (file == nullptr || to < 0) {
    return static_cast<int>(call.Gives(-EBADF));
  }
  return static_cast<int>(call.Gives(descriptors.Replace(to, std::move(file))));
}

SIMULATED(int, fstat64, int number, struct stat* status) {
  if (!IsRunning()) {
    return __real_fstat64(number, status);
  }
  const Target<File> file(number, "fstat");
  if (!file) {
    return static_cast<int>(Told(-EBADF));
  }
  *status = file->Status();
  return 0;
}

SIMULATED(int, stat64, const char* path, struct stat* status) {
  if (!IsRunning()) {
    return __real_stat64(path, status);
  }
  Call call("stat", Call::kPlain, path);
  const auto& nodes = Machine::Running()->nodes;
  const auto found = nodes.find(path);
  if (found != nodes.end()) {
    *status = found->second->Status();
  }
  return static_cast<int>(call.Gives(found != nodes.end() ? 0 : -ENOENT));
}

SIMULATED(int, unlink, const char* path) {
  if (!IsRunning()) {
    return __real_unlink(path);
  }
  Call call("unlink", Call::kPlain, path);
  return static_cast<int>(call.Gives(Machine::Running()->nodes.erase(path) == 1 ? 0 : -ENOENT));
}

// There is no /proc, so that tools are not looked for among the real machine's processes.
SIMULATED(ssize_t, readlink, const char* path, char* buffer, size_t size) {
  return IsRunning() ? Told(-ENOENT) : __real_readlink(path, buffer, size);
}

// The database: the stream keeps the text as it was when it was opened.
SIMULATED(FILE*, fopen64, const char* path, const char* mode) {
  if (!IsRunning()) {
    return __real_fopen64(path, mode);
  }
  Call call("fopen", Call::kCancellable, path);
  const auto& nodes = Machine::Running()->nodes;
  const auto found = nodes.find(path);
  const auto* const file =
      found == nodes.end() ? nullptr : dynamic_cast<TextNode*>(found->second.get());
  if (file == nullptr) {
    (void)call.Gives(-ENOENT);
    return nullptr;
  }
  FILE* const stream = std::tmpfile();
  (void)std::fwrite(file->text.data(), 1, file->text.size(), stream);
  std::rewind(stream);
  (void)call.Gives(0);
  return stream;
}

namespace {

// While a command runs its caller ignores what a terminal's keys send.
class KeysIgnored {
 public:
  KeysIgnored() : interrupt(Ignore(SIGINT)), quit(Ignore(SIGQUIT)) {}
  ~KeysIgnored() {
    Kernel::Running()->SetAction(SIGINT, interrupt);
    Kernel::Running()->SetAction(SIGQUIT, quit);
  }
  KeysIgnored(const KeysIgnored&) = delete;
  KeysIgnored& operator=(const KeysIgnored&) = delete;

 private:
  static Kernel::Action Ignore(int signal) {
    const Kernel::Action earlier = Kernel::Running()->ActionOf(signal);
    Kernel::Running()->SetAction(signal, {SIG_IGN});
    return earlier;
  }

  const Kernel::Action interrupt;
  const Kernel::Action quit;
};

}  // namespace

SIMULATED(int, system, const char* command) {
  if (!IsRunning()) {
    return __real_system(command);
  }
  Call call("system", Call::kCancellable, command);
  int exit = 0;
  {
    const KeysIgnored ignored;
    exit = Machine::Running()->RunShell(command);
  }
  return static_cast<int>(call.Gives(W_EXITCODE(exit, 0)));
}

SIMULATED(char*, getenv, const char* name) {
  if (!IsRunning()) {
    return __real_getenv(name);
  }
  auto& environment = Machine::Running()->environment;
  const auto found = environment.find(name);
  return found == environment.end() ? nullptr : found->second.data();
}

// Not a session's leader: no terminal of its own is needed.
SIMULATED(pid_t, getsid, pid_t process) { return IsRunning() ? 1 : __real_getsid(process); }
