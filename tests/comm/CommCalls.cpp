// SPDX-License-Identifier: MIT
#include "comm/CommCalls.h"

#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <string>

#include "support/Eventually.h"

CommCalls commCalls;

bool WaitUntilReceiving() {
  return Eventually([] {
    std::ifstream file("/proc/self/task/" + std::to_string(commCalls.receivingThread) + "/stat");
    std::string text;
    std::getline(file, text);
    const size_t state = text.rfind(") ");  // behind the thread's name
    return state != std::string::npos && text[state + 2] == 'S';
  });
}

extern "C" {

ssize_t __real_send(int descriptor, const void* data, size_t length, int flags);
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*routine)(void*), void* argument);
int __real_usleep(useconds_t microseconds);
ssize_t __real_recv(int descriptor, void* buffer, size_t length, int flags);

ssize_t __wrap_send(int descriptor, const void* data, size_t length, int flags) {
  const int earlier = commCalls.sends++;
  if (commCalls.sendsBeforeError >= 0 && earlier >= commCalls.sendsBeforeError) {
    errno = EPIPE;
    return -1;
  }
  if (commCalls.sendLimit == 0) {
    return 0;
  }
  const size_t limit =
      commCalls.sendLimit < 0 ? length : static_cast<size_t>(commCalls.sendLimit.load());
  return __real_send(descriptor, data, std::min(length, limit), flags);
}

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*routine)(void*), void* argument) {
  return commCalls.noThreads ? EAGAIN
                             : __real_pthread_create(thread, attributes, routine, argument);
}

ssize_t __wrap_recv(int descriptor, void* buffer, size_t length, int flags) {
  commCalls.receivingThread = gettid();
  const ssize_t result = __real_recv(descriptor, buffer, length, flags);
  if (commCalls.onReceived) {
    commCalls.onReceived();
  }
  return result;
}

int __wrap_usleep(useconds_t microseconds) {
  if (commCalls.onSleep) {
    commCalls.onSleep();
  }
  return __real_usleep(microseconds);
}

}  // extern "C"
