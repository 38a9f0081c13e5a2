// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "serial/AbstractSerial.h"

// A device in the test's hands, which is also the far end of its line.
class FakeDevice final : public CAbstractSerial {
 public:
  struct Opening {
    std::string path;
    SerialSettings settings;
    std::chrono::steady_clock::time_point when;
  };

  int Open(const std::string& path, const SerialSettings& settings) override {
    if (isOpen) {
      return kDeviceIsOpen;
    }
    {
      const std::lock_guard guard(lock);
      openings.push_back({path, settings, std::chrono::steady_clock::now()});
    }
    EXPECT_EQ(1, ++opening) << "Open is for one thread at a time";
    onOpen();
    --opening;
    isOpen = isPlugged.load();
    return isOpen ? kDeviceOpened : kDeviceNotOpened;
  }
  int Close() override {
    ++closes;
    return isOpen.exchange(closeFails) && closeFails ? -1 : 0;
  }
  int CloseForGood() override {
    isClosedForGood = true;
    return Close();
  }
  int Configure(const SerialSettings&) override { return 0; }
  int Write(const uint8_t* data, int length) override {
    writes.emplace_back(data, data + length);
    return refusals-- > 0 ? 0 : length;
  }
  int Read(uint8_t* buffer, int capacity) override {
    ++reads;
    onRead();
    if (!isOpen || !isPlugged || readFails.exchange(false)) {
      errno = isOpen ? EIO : EBADF;
      return -1;
    }
    const std::lock_guard guard(lock);
    isDrained = chunks.empty();
    if (isDrained) {
      return 0;
    }
    const std::string chunk = chunks.front().substr(0, static_cast<size_t>(capacity));
    chunks.front().erase(0, chunk.size());
    if (chunks.front().empty()) {
      chunks.pop_front();
    }
    std::copy(chunk.begin(), chunk.end(), buffer);
    return static_cast<int>(chunk.size());
  }
  std::string FindUsbDevice(unsigned, unsigned) override { return ""; }
  std::string ResolvePortName(const std::string&) override { return node; }

  // A read of its own gives each chunk.
  void Sends(const std::string& chunk) {
    const std::lock_guard guard(lock);
    chunks.push_back(chunk);
    isDrained = false;
  }
  std::vector<Opening> Openings() const {
    const std::lock_guard guard(lock);
    return openings;
  }

  std::string node = "/dev/ttyS2";
  std::atomic<bool> isPlugged{true};
  std::atomic<bool> isOpen{false};
  std::atomic<bool> isClosedForGood{false};
  std::atomic<bool> isDrained{false};  // a read behind the last chunk has begun
  std::atomic<bool> readFails{false};  // the next one
  std::atomic<bool> closeFails{false};
  std::atomic<int> reads{0};
  std::atomic<int> closes{0};
  std::vector<std::string> writes;  // what each was offered
  int refusals = 0;                 // so many take nothing

  // Runs within a call, before it looks at the above.
  std::function<void()> onOpen = [] {};
  std::function<void()> onRead = [] { (void)poll(nullptr, 0, 1); };

 private:
  mutable std::mutex lock;  // guards the next two
  std::deque<std::string> chunks;
  std::vector<Opening> openings;
  std::atomic<int> opening{0};
};
