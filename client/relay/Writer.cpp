// SPDX-License-Identifier: MIT
#include "relay/Writer.h"

#include <algorithm>

namespace relay {

namespace {

// Bytes behind which a confirmation is asked for: a part of the window, so that the line never
// waits for it.
constexpr uint64_t kFenceDistance = Writer::kWindow / 4;

}  // namespace

struct Writer::State {
  State(Client& linkClient, const Port& linePort, size_t mostInBlock)
      : client(linkClient), port(linePort), blockSize(mostInBlock) {}

  Client& client;
  const Port port;
  const size_t blockSize;
  std::string waiting;
  uint64_t sent = 0;       // since the beginning
  uint64_t fenced = 0;     // of these, those in front of the last open
  uint64_t confirmed = 0;  // of these, those in front of the last answer
  bool confirmAll = false;
};

Writer::Writer(Client& linkClient, const Port& port, size_t blockSize)
    : shared(std::make_shared<State>(linkClient, port, blockSize)) {}

void Writer::Write(std::string_view bytes) {
  shared->waiting += bytes;
  shared->confirmAll = false;
  Pump(shared);
}

void Writer::Confirm() {
  shared->confirmAll = true;
  Pump(shared);
}

uint64_t Writer::Pending() const {
  return shared->sent - shared->confirmed + shared->waiting.size();
}

uint64_t Writer::Unsent() const { return shared->waiting.size(); }

uint64_t Writer::Confirmed() const { return shared->confirmed; }

void Writer::Clear() {
  // Afresh, so that an answer that is still to come counts for nothing.
  const auto next = std::make_shared<State>(shared->client, shared->port, shared->blockSize);
  next->sent = next->fenced = next->confirmed = shared->confirmed;
  shared = next;
}

void Writer::SendFence(const std::shared_ptr<State>& state) {
  state->fenced = state->sent;
  const uint64_t upTo = state->sent;
  const std::weak_ptr<State> weak = state;
  state->client.Fence(state->port, [weak, upTo](const Reply&) {
    if (const auto alive = weak.lock()) {
      alive->confirmed = std::max(alive->confirmed, upTo);
      Pump(alive);
    }
  });
}

void Writer::Pump(const std::shared_ptr<State>& state) {
  if (!state->client.IsConnected()) {
    return;
  }
  size_t at = 0;
  // Without a confirmation under way the window would stay full for ever.
  while (at < state->waiting.size() && state->sent - state->confirmed < kWindow) {
    const size_t count = std::min(kPiece, state->waiting.size() - at);
    state->client.Data(state->port, std::string_view(state->waiting).substr(at, count),
                       state->blockSize);
    state->sent += count;
    at += count;
    if (state->sent - state->fenced >= kFenceDistance) {
      SendFence(state);
    }
  }
  state->waiting.erase(0, at);
  if (state->confirmAll && state->waiting.empty() && state->fenced != state->sent) {
    SendFence(state);
  }
}

}  // namespace relay
