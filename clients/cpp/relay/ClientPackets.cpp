// SPDX-License-Identifier: MIT
// The half of Client that knows packets.
#include <algorithm>
#include <utility>

#include "relay/Client.h"

namespace relay {

namespace {

// The blocks of one command, taken from the front of `data`. `most`: what a single block can have.
std::vector<Block> TakeBlocks(std::string_view& data, size_t most, size_t blockSize) {
  constexpr size_t kBlockHeader = 3;
  constexpr size_t kMaxBlocks = 255;
  const size_t size = blockSize == 0 ? most : std::min(blockSize, most);
  std::vector<Block> blocks;
  size_t used = 0;
  while (!data.empty() && blocks.size() < kMaxBlocks) {
    const size_t count = std::min(size, data.size());
    const size_t needed = count + (blocks.empty() ? 0 : kBlockHeader);
    if ((blockSize == 0 && !blocks.empty()) || used + needed > most) {
      break;
    }
    blocks.push_back({1, std::string(data.substr(0, count))});
    data.remove_prefix(count);
    used += needed;
  }
  return blocks;
}

}  // namespace

void Client::TakePackets() {
  const uint64_t link = linkNumber;
  try {
    while (state == State::kConnected && link == linkNumber) {
      const std::optional<std::string> packet = cutter.Next();
      if (!packet) {
        return;
      }
      TakePacket(*packet);
    }
  } catch (const Error& error) {
    if (error.Kind() != ErrorKind::kNonsense) {
      throw;
    }
    Disconnect(error, true);
  }
}

void Client::TakePacket(std::string_view bytes) {
  const Events told = events;
  if (told.packet) {
    told.packet(Direction::kFromService, bytes);
  }
  const ParsedPacket parsed = ParsePacket(bytes, Direction::kFromService);
  const Packet& packet = parsed.packet;
  if (!parsed.problem.empty()) {
    if (told.malformed) {
      told.malformed(bytes, parsed.problem);
    }
  } else if (packet.command != kCommandData) {
    TakeReply({packet.command, packet.port, packet.number.value_or(0)});
  } else if (told.received) {
    told.received(packet.port, packet.Data());
  }
}

void Client::TakeReply(const Reply& reply) {
  // Answers come in the order of their commands. One that does not fit answers raw bytes.
  ReplyHandler handler;
  if (!questions.empty() && questions.front().command == reply.command) {
    handler = std::move(questions.front().handler);
    questions.pop_front();
    if (!questions.empty()) {
      // It was held up by the one before.
      questions.front().since = Clock::now();
    }
  }
  if (handler) {
    handler(reply);
  } else if (events.reply) {
    const auto told = events.reply;
    told(reply);
  }
}

void Client::Ask(uint8_t command, const std::string& packet, ReplyHandler handler) {
  if (!IsConnected()) {
    return;
  }
  questions.push_back({command, std::move(handler), Clock::now()});
  if (events.packet) {
    events.packet(Direction::kToService, packet);
  }
  Send(packet);
}

void Client::Open(const Port& port, ReplyHandler handler) {
  Ask(kCommandOpen, OpenCommand(port), std::move(handler));
}

void Client::Close(const Port& port, ReplyHandler handler) {
  Ask(kCommandClose, CloseCommand(port), std::move(handler));
}

void Client::Fence(const Port& port, ReplyHandler handler) {
  if (IsConnected() && !MayAsk()) {
    heldFences.push_back({port, std::move(handler)});
    return;
  }
  Ask(kCommandOpen, OpenCommand(port, kFenceParameter), std::move(handler));
}

void Client::Data(const Port& port, std::string_view data, size_t blockSize) {
  while (!data.empty() && IsConnected()) {
    const std::string packet = DataCommand(port, TakeBlocks(data, MaxData(port), blockSize));
    if (events.packet) {
      events.packet(Direction::kToService, packet);
    }
    Send(packet);
  }
}

void Client::KeepOpen(const Port& port) {
  if (kept.emplace(port, KeptPort{}).second) {
    OpenKept(port);
  }
}

bool Client::LetGo(const Port& port, ReplyHandler handler) {
  const auto found = kept.find(port);
  if (found == kept.end()) {
    return false;
  }
  const bool mayBeOpen = found->second.mayBeOpen;
  kept.erase(found);
  if (mayBeOpen) {
    Close(port, std::move(handler));
  }
  return mayBeOpen;
}

bool Client::IsOpen(const Port& port) const {
  const auto found = kept.find(port);
  return found != kept.end() && found->second.isOpen;
}

void Client::OpenKept(const Port& port) {
  const auto asked = kept.find(port);
  if (asked == kept.end()) {
    return;  // let go from within an event
  }
  asked->second.mayBeOpen = IsConnected();
  Open(port, [this, port](const Reply& reply) {
    const auto found = kept.find(port);
    if (found != kept.end()) {
      // Open already: by this very link, for it is the service's only peer.
      found->second.isOpen = reply.status == kStatusDone || reply.status == kStatusUnavailable;
      found->second.mayBeOpen = found->second.isOpen;
      if (!found->second.isOpen && options.reconnect) {
        found->second.retryAt = Clock::now() + options.reopenPause;
      }
    }
    if (events.reply) {
      const auto told = events.reply;
      told(reply);
    }
  });
}

}  // namespace relay
