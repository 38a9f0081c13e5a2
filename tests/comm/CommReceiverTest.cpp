// SPDX-License-Identifier: MIT
// When the receive loop ends, over a stream that always has the byte that is asked for.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "comm/CommReceiver.h"

namespace {

// The bytes 00 03 7F, again and again.
class EndlessStream final : public CAbstractSocket {
 public:
  int Listen(uint32_t) override { return 0; }
  int Connect(uint32_t) override { return 0; }
  int Close() override { return 0; }
  int Send(const uint8_t*, int) override { return -1; }
  int Recv(uint8_t* buffer, int) override {
    constexpr uint8_t kPacket[] = {0x00, 0x03, 0x7F};
    *buffer = kPacket[requests++ % 3];
    return 1;
  }

  int requests = 0;
};

// Stops the receiver from within a callback, as an owner's Close on another thread may.
int StopIt(const uint8_t*, uint32_t, void* context) {
  static_cast<CCommReceiver*>(context)->Stop();
  return 0;
}

TEST(CommReceiverTest, AStoppedReceiverAsksForNothing) {
  const auto stream = std::make_shared<EndlessStream>();
  CCommReceiver receiver(stream, {});
  receiver.Stop();
  receiver.Run();
  EXPECT_EQ(0, stream->requests);
}

TEST(CommReceiverTest, AStopDuringACallbackEndsTheLoopWithoutAnotherRequest) {
  const auto stream = std::make_shared<EndlessStream>();
  CCommReceiver receiver(stream, {});
  receiver.SetCallbacks({StopIt, nullptr, &receiver});
  receiver.Run();
  EXPECT_EQ(3, stream->requests);
}

}  // namespace
