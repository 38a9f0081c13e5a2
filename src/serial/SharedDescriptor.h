// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <memory>

#include "Linux/LinuxLock.h"

// The descriptor of an open device that some threads read and write while another one closes it.
// Its number is given back when the last call on it has ended: no call ever lands on a number that
// meanwhile belongs to another device.
//
// Threads: any, at any time. The lock inside is never held during a system call, so nobody waits
// for another one's read, write or close.
class CSharedDescriptor {
 public:
  // One open descriptor. Whoever holds it keeps the number; the last one closes it.
  class CFile {
   public:
    explicit CFile(int open) : number(open) {}
    ~CFile();
    CFile(const CFile&) = delete;
    CFile& operator=(const CFile&) = delete;

    int Number() const { return number; }

   private:
    friend class CSharedDescriptor;
    std::atomic<int> number;  // -1: none, or closed already
  };

  // To be held for the time of a call; never null.
  std::shared_ptr<CFile> Use();
  bool IsOpen() { return Use()->Number() != -1; }

  // Takes the number over.
  void Set(int number);

  // From now on there is no descriptor for others. What is returned belongs to the one thread that
  // closes it; for every other one, and when nothing is open, its number is -1.
  std::shared_ptr<CFile> TakeOut();

  // Closes what TakeOut gave: 0, or -1 when the system reports a failure; it then stays open as
  // before. While another thread is still in a call on it: 0, and that thread closes it.
  int Close(const std::shared_ptr<CFile>& taken);

 private:
  const std::shared_ptr<CFile> none = std::make_shared<CFile>(-1);
  CLinuxLock lock;
  std::shared_ptr<CFile> current GUARDED_BY(lock) = none;
};
