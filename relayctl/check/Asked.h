// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "relay/Packet.h"

// What a program has asked for on one link, port by port, without what chance decides: how data are
// cut into commands, where fences stand, and in which order it turns to different ports. An open of
// a port that is repeated, as one is that was refused, counts once.
class Asked {
 public:
  void Take(const relay::Packet& command);

  bool operator==(const Asked&) const = default;

  // Whether `whole` may still come of it.
  bool IsBeginOf(const Asked& whole) const;

  // How it differs from `plain`, for a person: `#X: an open, and not data "A"`.
  std::string DifferenceTo(const Asked& plain) const;

  bool HasOpened(const Asked& plain) const;  // all ports that `plain` has opened
  std::set<relay::Port> Opened() const;
  size_t Count() const;
  size_t DataCount() const;  // in bytes

 private:
  struct Item {
    uint8_t command = 0;
    std::string data;
    bool operator==(const Item&) const = default;
  };
  using Items = std::vector<Item>;

  static std::string Text(const Items& items, size_t index);
  static std::string Difference(const Items& own, const Items& plain);
  static bool IsBegin(const Items& own, const Items& whole);
  const Items& Of(const relay::Port& port) const;

  std::map<relay::Port, Items> ports;
};
