// SPDX-License-Identifier: MIT
#include "Linux/LinuxLock.h"

CLinuxLock::CLinuxLock() { (void)pthread_mutex_init(&mutex, nullptr); }

CLinuxLock::~CLinuxLock() { (void)pthread_mutex_destroy(&mutex); }

int CLinuxLock::Lock() { return pthread_mutex_lock(&mutex); }

int CLinuxLock::Unlock() { return pthread_mutex_unlock(&mutex); }
