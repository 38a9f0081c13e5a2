// SPDX-License-Identifier: MIT
#include "relay/Writer.h"

#include <algorithm>

namespace relay {

namespace {

// Bytes behind which a confirmation is asked for: a small part of the window, so that the line
// never waits for it; and of what the line has taken so far, so that a slow one is seen to go on.
uint64_t FenceDistance(uint64_t confirmed) {
  return std::clamp<uint64_t>(confirmed / 32, Writer::kWindow / 128, Writer::kWindow / 16);
}

}  // namespace

struct Writer::State {
  State(Client& linkClient, const Port& linePort, size_t mostInBlock)
      : client(linkClient), port(linePort), blockSize(mostInBlock) {}

  Client& client;
  const Port port;
  const size_t blockSize;
  ByteQueue waiting;
  uint64_t sent = 0;       // since the beginning
  uint64_t fenced = 0;     // of these, those in front of the last open
  uint64_t confirmed = 0;  // of these, those in front of the last answer
  bool confirmAll = false;
};

Writer::Writer(Client& linkClient, const Port& port, size_t blockSize)
    : shared(std::make_shared<State>(linkClient, port, blockSize)) {}

void Writer::Write(std::string_view bytes) {
  shared->waiting.Add(bytes);
  shared->confirmAll = false;
  Pump(shared);
}

void Writer::Confirm() {
  shared->confirmAll = true;
  Pump(shared);
}

uint64_t Writer::Pending() const {
  return shared->sent - shared->confirmed + shared->waiting.Size();
}

uint64_t Writer::Unsent() const { return shared->waiting.Size() + shared->client.Unsent(); }

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

// A client that does not read sends no fence: then the buffers between set the pace, so that a
// device that talks to nobody still gets what is written to it.
bool Writer::HasRoom(const State& state) {
  return state.sent - state.confirmed < kWindow || !state.client.MayAsk();
}

void Writer::FenceIfDue(const std::shared_ptr<State>& state) {
  const uint64_t behind = state->sent - state->fenced;
  const bool isDue = behind >= FenceDistance(state->confirmed) ||
                     (state->confirmAll && state->waiting.IsEmpty() && behind > 0);
  // One that waits in the client is enough: its answer brings the next.
  if (isDue && (state->client.MayAsk() || state->fenced == state->confirmed)) {
    SendFence(state);
  }
}

void Writer::Pump(const std::shared_ptr<State>& state) {
  if (!state->client.IsConnected()) {
    return;
  }
  FenceIfDue(state);
  while (!state->waiting.IsEmpty() && HasRoom(*state)) {
    const size_t size = std::min<size_t>(kPiece, FenceDistance(state->confirmed));
    const std::string_view piece = state->waiting.View().substr(0, size);
    state->client.Data(state->port, piece, state->blockSize);
    state->sent += piece.size();
    state->waiting.Take(piece.size());
    FenceIfDue(state);
  }
}

}  // namespace relay
