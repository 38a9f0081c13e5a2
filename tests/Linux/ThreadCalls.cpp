// SPDX-License-Identifier: MIT
#include "Linux/ThreadCalls.h"

#include <unistd.h>

thread_local ThreadCalls* countedCalls = nullptr;

extern "C" {

int __real_usleep(useconds_t microseconds);
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*routine)(void*), void* argument);
int __real_pthread_tryjoin_np(pthread_t thread, void** result);
int __real_pthread_cancel(pthread_t thread);
int __real_pthread_detach(pthread_t thread);

int __wrap_usleep(useconds_t microseconds) {
  if (countedCalls == nullptr) {
    return __real_usleep(microseconds);
  }
  pthread_testcancel();  // usleep is a cancellation point
  countedCalls->sleeps.push_back(microseconds);
  if (countedCalls->onSleep) {
    countedCalls->onSleep();
  }
  return countedCalls->sleepResult;
}

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*routine)(void*), void* argument) {
  if (countedCalls == nullptr) {
    return __real_pthread_create(thread, attributes, routine, argument);
  }
  if (countedCalls->createResult != 0) {
    *thread = pthread_self();  // the C library leaves the handle of no thread behind, too
    return countedCalls->createResult;
  }
  countedCalls->createdWithAttributes = attributes != nullptr;
  const int result = __real_pthread_create(thread, attributes, routine, argument);
  countedCalls->created.push_back(*thread);
  return result;
}

int __wrap_pthread_tryjoin_np(pthread_t thread, void** result) {
  if (countedCalls != nullptr) {
    ++countedCalls->joinAttempts;
  }
  return __real_pthread_tryjoin_np(thread, result);
}

int __wrap_pthread_cancel(pthread_t thread) {
  if (countedCalls != nullptr) {
    ++countedCalls->cancels;
    if (countedCalls->cancelResult != 0) {
      return countedCalls->cancelResult;
    }
  }
  return __real_pthread_cancel(thread);
}

int __wrap_pthread_detach(pthread_t thread) {
  const int result = __real_pthread_detach(thread);  // also when a failure is shown: no leak
  if (countedCalls == nullptr) {
    return result;
  }
  ++countedCalls->detaches;
  return countedCalls->detachResult != 0 ? countedCalls->detachResult : result;
}

}  // extern "C"
