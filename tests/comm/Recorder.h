// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "comm/CommSocketExport.h"
#include "support/Eventually.h"
#include "support/Hex.h"

// Writes down what a connection tells its owner: "packet 10: 000A…", "error ConnectError -1".
class Recorder {
 public:
  CommCallbacks Callbacks() { return {OnReceive, OnError, this}; }

  std::vector<std::string> Events() const {
    const std::lock_guard guard(lock);
    return events;
  }

  bool WaitForEvents(size_t count) const {
    return Eventually([this, count] { return Events().size() >= count; });
  }

 protected:
  void Add(const std::string& event) {
    const std::lock_guard guard(lock);
    events.push_back(event);
  }

 private:
  static int OnReceive(const uint8_t* packet, uint32_t length, void* context) {
    // Of a packet whose length field is a lie, the field alone.
    const size_t shown = std::max<size_t>(length, 2);
    static_cast<Recorder*>(context)->Add("packet " + std::to_string(length) + ": " +
                                         ToHex(packet, shown));
    return -7;  // ignored
  }

  static int OnError(const std::string& text, int result, void* context) {
    static_cast<Recorder*>(context)->Add("error " + text + " " + std::to_string(result));
    return -7;  // ignored
  }

  mutable std::mutex lock;
  std::vector<std::string> events;
};
