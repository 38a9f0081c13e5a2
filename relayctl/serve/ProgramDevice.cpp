// SPDX-License-Identifier: MIT
#include "serve/ProgramDevice.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

#include "link/Loop.h"

ProgramDevice::ProgramDevice(const Line& portLine, std::string commandLine)
    : line(portLine), command(std::move(commandLine)) {}

ProgramDevice::~ProgramDevice() { End(); }

// A stream in both directions, as a line is; most programs take it for a pipe.
void ProgramDevice::Open() {
  End();
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    throw std::system_error(errno, std::generic_category(), "a line for a program");
  }
  stream = ends[0];
  (void)fcntl(stream, F_SETFL, O_NONBLOCK);
  Start(ends[1]);
  (void)close(ends[1]);
  line.loop.Watch(stream, line.wanted, [this](short) { line.wake(); });
}

// No signal is blocked in it, and the keyboard's are not for it.
void ProgramDevice::Start(int programEnd) {
  std::array<char*, 4> words = {const_cast<char*>("/bin/sh"), const_cast<char*>("-c"),
                                const_cast<char*>(command.c_str()), nullptr};
  posix_spawn_file_actions_t files;
  posix_spawnattr_t attributes;
  (void)posix_spawn_file_actions_init(&files);
  (void)posix_spawnattr_init(&attributes);
  (void)posix_spawn_file_actions_adddup2(&files, programEnd, STDIN_FILENO);
  (void)posix_spawn_file_actions_adddup2(&files, programEnd, STDOUT_FILENO);
  sigset_t none;
  (void)sigemptyset(&none);
  (void)posix_spawnattr_setsigmask(&attributes, &none);
  (void)posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
  const int error = posix_spawn(&process, words[0], &files, &attributes, words.data(), environ);
  (void)posix_spawnattr_destroy(&attributes);
  (void)posix_spawn_file_actions_destroy(&files);
  if (error != 0) {
    process = -1;
    throw std::system_error(error, std::generic_category(), words[0]);
  }
}

void ProgramDevice::Close() {
  HangUp();
  if (process != -1) {
    (void)kill(-process, SIGHUP);
    (void)kill(-process, SIGCONT);
  }
}

void ProgramDevice::HangUp() {
  if (stream != -1) {
    line.loop.Forget(stream);
    (void)close(std::exchange(stream, -1));
  }
}

// A killed process ends, so that this is no wait for the program's own doing.
void ProgramDevice::End() {
  HangUp();
  if (process != -1) {
    (void)kill(-process, SIGKILL);
    (void)TEMP_FAILURE_RETRY(waitpid(std::exchange(process, -1), nullptr, 0));
  }
}

size_t ProgramDevice::Take(std::string_view bytes) {
  if (stream == -1) {
    return bytes.size();
  }
  const ssize_t count = send(stream, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  if (count >= 0) {
    return static_cast<size_t>(count);
  }
  return errno == EAGAIN || errno == EINTR ? 0 : bytes.size();
}

std::string ProgramDevice::Give(size_t most) {
  std::string bytes(stream != -1 ? most : 0, '\0');
  const ssize_t count = recv(stream, bytes.data(), bytes.size(), 0);
  const bool isOver =
      stream != -1 && (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR));
  bytes.resize(count > 0 ? static_cast<size_t>(count) : 0);
  if (isOver) {
    HangUp();
    line.tell(line.port + ": its program has closed the line");
  }
  return bytes;
}
