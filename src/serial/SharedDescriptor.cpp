// SPDX-License-Identifier: MIT
#include "serial/SharedDescriptor.h"

#include <unistd.h>

#include <utility>

#include "Linux/CancellationShield.h"
#include "Linux/LockGuard.h"

CSharedDescriptor::CFile::~CFile() {
  if (number != -1) {
    const CCancellationShield shield;
    (void)close(number);
  }
}

std::shared_ptr<CSharedDescriptor::CFile> CSharedDescriptor::Use() {
  const CLockGuard guard(lock);
  return current;
}

void CSharedDescriptor::Set(int number) {
  auto file = std::make_shared<CFile>(number);
  const CLockGuard guard(lock);
  current.swap(file);  // the earlier one is released after the lock
}

std::shared_ptr<CSharedDescriptor::CFile> CSharedDescriptor::TakeOut() {
  const CLockGuard guard(lock);
  return std::exchange(current, none);
}

int CSharedDescriptor::Close(const std::shared_ptr<CFile>& taken) {
  // Nobody can begin to use it any more. A use that ends between this look and the end of ours
  // leaves the closing to our release.
  if (taken->number == -1 || taken.use_count() > 1) {
    return 0;
  }
  // What was read orders nothing. Letting go of a copy does: others' calls come before the close.
  std::shared_ptr<CFile>(taken).reset();
  const int number = taken->number.exchange(-1);
  if (close(number) < 0) {
    Set(number);
    return -1;
  }
  return 0;
}
