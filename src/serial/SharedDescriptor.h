// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <memory>
#include <utility>

#include "Linux/LinuxLock.h"

// The descriptor of an open device that some threads read and write while another one closes it.
// Its number is given back when the last call on it has ended: no call ever lands on a number that
// meanwhile belongs to another device.
//
// Threads: any, at any time. The lock inside is never held during a system call, so nobody waits
// for another one's read, write or close.
class CSharedDescriptor {
 public:
  // Keeps the number for the time of a call.
  class CUse {
   public:
    CUse(CUse&& other) noexcept = default;
    CUse& operator=(CUse&& other) = delete;
    ~CUse();

    int Number() const { return file != nullptr ? file->number : -1; }

   private:
    friend class CSharedDescriptor;
    struct CFile {
      explicit CFile(int openNumber) : number(openNumber) {}
      ~CFile();  // closes
      CFile(const CFile&) = delete;
      CFile& operator=(const CFile&) = delete;

      std::atomic<int> uses{0};
      int number;  // -1 once it is closed; changed by the last use
    };
    explicit CUse(std::shared_ptr<CFile> used);

    std::shared_ptr<CFile> file;
  };

  CUse Use();
  bool IsOpen() { return Use().Number() != -1; }

  // Takes the number over.
  void Set(int number);

  // From now on there is no descriptor for others. The returned use belongs to the one thread that
  // closes it; for every other one, and when nothing is open, it is -1.
  CUse TakeOut();

  // Closes what TakeOut gave: 0, or -1 when the system reports a failure; it then stays open as
  // before. While another thread is still in a call on it: 0, and that thread closes it.
  int Close(CUse taken);

 private:
  CLinuxLock lock;
  std::shared_ptr<CUse::CFile> current;
};
