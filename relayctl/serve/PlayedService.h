// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

// The service without link, lines and clock: what a packet of the relay service does, and what is
// answered. It reads and builds packets with the service's own code, so that they are the same byte
// for byte. Does nothing by itself: whoever has the link and the lines does what Effect tells.
class PlayedService {
 public:
  struct Effect {
    enum class Kind {
      kNothing,
      kOpened,  // the port; its line is to be read from now on, behind the reply
      kClosed,
      kData,     // `data` are for the port's device, which is there
      kDropped,  // the same, but nobody gets them
      kRefused,  // the packet was malformed
      kDies,     // the service ends: `port` are ids that no adapter has
    };
    Kind kind = Kind::kNothing;
    std::string port;
    std::string reply;  // empty: none
    std::string data;   // of all blocks
  };

  // The ports that lead to a device, if one is plugged in.
  static std::vector<std::string> Ports();

  // From now on there is a device. `ids`: an adapter's, "0403:6001".
  void Plug(const std::string& port, const std::string& ids);
  void Unplug(const std::string& port) { devices.erase(port); }
  bool IsPlugged(const std::string& port) const { return devices.contains(port); }
  bool IsOpen(const std::string& port) const { return open.contains(port); }

  // The next open of the port, or with status 5 the next close, is answered with this, and changes
  // nothing. Several wait for as many commands.
  void Answer(const std::string& port, uint16_t status);

  // One packet as the service would take it: as long as its length field says, or longer for 0
  // and 1.
  Effect Take(std::string_view packet);

  // The relay service has left: all ports are closed.
  void CloseAll() { open.clear(); }

  // What a port has received. At most kMostReceived bytes, as much as the service reads at a time.
  static constexpr size_t kMostReceived = 4096;
  static std::string Notification(const std::string& port, std::string_view bytes);
  static std::string NumberedNotification(const std::string& ids, std::string_view bytes);

 private:
  uint16_t Open(Effect& effect);  // the port of which is known
  uint16_t Close(Effect& effect);
  bool HasAdapter(const std::string& ids) const;

  std::map<std::string, std::string> devices;  // port to ids
  std::set<std::string> open;
  std::map<std::string, std::deque<uint16_t>> openAnswers;
  std::map<std::string, std::deque<uint16_t>> closeAnswers;
};
