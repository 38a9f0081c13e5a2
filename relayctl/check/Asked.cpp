// SPDX-License-Identifier: MIT
#include "check/Asked.h"

#include <algorithm>

#include "relay/Text.h"

namespace {

constexpr size_t kMostOfData = 40;

std::string Short(const std::string& data) {
  return relay::Quote(data.substr(0, kMostOfData)) +
         (data.size() > kMostOfData ? " and so on, " + std::to_string(data.size()) + " bytes" : "");
}

}  // namespace

void Asked::Take(const relay::Packet& command) {
  if (command.IsFence()) {
    return;
  }
  Items& items = ports[command.port];
  const bool isSame = !items.empty() && items.back().command == command.command;
  if (command.command == kCommandData && isSame) {
    items.back().data += command.Data();
  } else if (command.command == kCommandData) {
    items.push_back({command.command, command.Data()});
  } else if (!isSame || command.command != kCommandOpen) {
    items.push_back({command.command, ""});
  }
}

const Asked::Items& Asked::Of(const relay::Port& port) const {
  static const Items none;
  const auto found = ports.find(port);
  return found != ports.end() ? found->second : none;
}

bool Asked::IsBegin(const Items& own, const Items& whole) {
  if (own.size() > whole.size()) {
    return false;
  }
  for (size_t i = 0; i < own.size(); ++i) {
    const bool mayGrow = i + 1 == own.size() && own[i].command == kCommandData;
    const bool fits =
        own[i].command == whole[i].command &&
        (mayGrow ? whole[i].data.starts_with(own[i].data) : whole[i].data == own[i].data);
    if (!fits) {
      return false;
    }
  }
  return true;
}

bool Asked::IsBeginOf(const Asked& whole) const {
  return std::all_of(ports.begin(), ports.end(), [&](const auto& entry) {
    return IsBegin(entry.second, whole.Of(entry.first));
  });
}

std::string Asked::Text(const Items& items, size_t index) {
  if (index >= items.size()) {
    return "nothing more";
  }
  const Item& item = items[index];
  return item.command == kCommandOpen    ? "an open"
         : item.command == kCommandClose ? "a close"
                                         : "data " + Short(item.data);
}

std::string Asked::Difference(const Items& own, const Items& plain) {
  size_t same = 0;
  while (same < own.size() && same < plain.size() && own[same] == plain[same]) {
    ++same;
  }
  return Text(own, same) + ", and not " + Text(plain, same);
}

std::string Asked::DifferenceTo(const Asked& plain) const {
  std::set<relay::Port> all;
  for (const auto* const side : {this, &plain}) {
    for (const auto& entry : side->ports) {
      all.insert(entry.first);
    }
  }
  for (const relay::Port& port : all) {
    if (Of(port) != plain.Of(port)) {
      return port.Text() + ": " + Difference(Of(port), plain.Of(port));
    }
  }
  return "";
}

std::set<relay::Port> Asked::Opened() const {
  std::set<relay::Port> opened;
  for (const auto& [port, items] : ports) {
    if (std::any_of(items.begin(), items.end(),
                    [](const Item& item) { return item.command == kCommandOpen; })) {
      opened.insert(port);
    }
  }
  return opened;
}

bool Asked::HasOpened(const Asked& plain) const {
  const std::set<relay::Port> own = Opened();
  const std::set<relay::Port> wanted = plain.Opened();
  return std::includes(own.begin(), own.end(), wanted.begin(), wanted.end());
}

size_t Asked::Count() const {
  size_t count = 0;
  for (const auto& entry : ports) {
    count += entry.second.size();
  }
  return count;
}

size_t Asked::DataCount() const {
  size_t count = 0;
  for (const auto& entry : ports) {
    for (const Item& item : entry.second) {
      count += item.data.size();
    }
  }
  return count;
}
