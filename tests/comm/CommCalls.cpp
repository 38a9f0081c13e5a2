// SPDX-License-Identifier: MIT
#include "comm/CommCalls.h"

#include <pthread.h>
#include <unistd.h>

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

int WatchedSocket::Recv(uint8_t* buffer, int capacity) {
  commCalls.receivingThread = gettid();
  const int result = socket.Recv(buffer, capacity);
  if (commCalls.onReceived) {
    commCalls.onReceived();
  }
  return result;
}

extern "C" {

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*routine)(void*), void* argument);
int __real_usleep(useconds_t microseconds);

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*routine)(void*), void* argument) {
  return commCalls.noThreads ? EAGAIN
                             : __real_pthread_create(thread, attributes, routine, argument);
}

int __wrap_usleep(useconds_t microseconds) {
  if (commCalls.onSleep) {
    commCalls.onSleep();
  }
  return __real_usleep(microseconds);
}

}  // extern "C"
