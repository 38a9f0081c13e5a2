// SPDX-License-Identifier: MIT
#include "serial/SharedDescriptor.h"

#include <unistd.h>

#include <utility>

#include "Linux/CancellationShield.h"
#include "Linux/LockGuard.h"

CSharedDescriptor::CUse::CFile::~CFile() {
  if (number != -1) {
    const CCancellationShield shield;
    (void)close(number);
  }
}

CSharedDescriptor::CUse::CUse(std::shared_ptr<CFile> used) : file(std::move(used)) {
  if (file != nullptr) {
    ++file->uses;
  }
}

CSharedDescriptor::CUse::~CUse() {
  if (file != nullptr) {
    --file->uses;
  }
}

CSharedDescriptor::CUse CSharedDescriptor::Use() {
  const CLockGuard guard(lock);
  return CUse(current);
}

void CSharedDescriptor::Set(int number) {
  auto file = std::make_shared<CUse::CFile>(number);
  const CLockGuard guard(lock);
  current.swap(file);  // the earlier one is released after the lock
}

CSharedDescriptor::CUse CSharedDescriptor::TakeOut() {
  const CLockGuard guard(lock);
  return CUse(std::exchange(current, nullptr));
}

int CSharedDescriptor::Close(CUse taken) {
  // Nobody can begin to use it any more. A use that ends between this look and the end of ours
  // leaves the closing to our release.
  if (taken.file == nullptr || taken.file->uses > 1) {
    return 0;
  }
  const int number = std::exchange(taken.file->number, -1);
  if (close(number) < 0) {
    Set(number);
    return -1;
  }
  return 0;
}
