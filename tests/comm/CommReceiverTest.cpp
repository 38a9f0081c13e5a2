// SPDX-License-Identifier: MIT
// The receive loop over a scripted stream: how much it asks for, and when it delivers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "comm/CommReceiver.h"
#include "support/Hex.h"

namespace {

using testing::ElementsAre;

// Gives its bytes in pieces of at most `pieceSize`, then fails. Writes down what it is asked.
class ScriptedStream final : public CAbstractSocket {
 public:
  ScriptedStream(const std::string& hexText, int bytesAtATime)
      : bytes(FromHex(hexText)), pieceSize(bytesAtATime) {}

  int Listen(uint32_t) override { return 0; }
  int Connect(uint32_t) override { return 0; }
  int Close() override { return 0; }
  int Send(const uint8_t*, int) override { return -1; }

  int Recv(uint8_t* buffer, int capacity) override {
    events.push_back("asks " + std::to_string(capacity));
    const int left = static_cast<int>(bytes.size()) - position;
    const int count = std::min({capacity, pieceSize, left});
    if (count < 1) {
      return -1;
    }
    std::copy_n(bytes.begin() + position, count, buffer);
    position += count;
    return count;
  }

  std::vector<std::string> events;

 private:
  std::vector<uint8_t> bytes;
  int pieceSize;
  int position = 0;
};

int AddPacket(const uint8_t* packet, uint32_t length, void* context) {
  static_cast<ScriptedStream*>(context)->events.push_back("packet " + ToHex(packet, length));
  return 0;
}

int AddError(const std::string& text, int result, void* context) {
  static_cast<ScriptedStream*>(context)->events.push_back(text + " " + std::to_string(result));
  return 0;
}

std::vector<std::string> EventsOf(const std::string& hexText, int pieceSize) {
  const auto stream = std::make_shared<ScriptedStream>(hexText, pieceSize);
  CCommReceiver receiver(stream, {AddPacket, AddError, stream.get()});
  receiver.Run();
  return stream->events;
}

TEST(CommReceiverTest, APacketArrivingOneByteAtATimeIsDeliveredAfterItsTenthByte) {
  EXPECT_THAT(
      EventsOf("000A 02 01 0003 0007 0005", 1),
      ElementsAre("asks 2", "asks 1", "asks 8", "asks 7", "asks 6", "asks 5", "asks 4", "asks 3",
                  "asks 2", "asks 1", "packet 000A0201000300070005", "asks 2", "ConnectError -1"));
}

TEST(CommReceiverTest, NoRequestReachesPastThePacket) {
  EXPECT_THAT(EventsOf("0005 010203  0003 7F", 100),
              ElementsAre("asks 2", "asks 3", "packet 0005010203", "asks 2", "asks 1",
                          "packet 00037F", "asks 2", "ConnectError -1"));
}

TEST(CommReceiverTest, LengthField2AsksFor0Bytes) {
  EXPECT_THAT(EventsOf("0002 AB", 100), ElementsAre("asks 2", "asks 0", "ConnectError -1"));
}

TEST(CommReceiverTest, LengthField0AsksFor65534FurtherBytes) {
  EXPECT_THAT(EventsOf("0000", 100), ElementsAre("asks 2", "asks 65534", "ConnectError -1"));
}

TEST(CommReceiverTest, LengthField1AsksFor65535FurtherBytes) {
  EXPECT_THAT(EventsOf("0001", 100), ElementsAre("asks 2", "asks 65535", "ConnectError -1"));
}

int AddNonZeroBytesBehind(const uint8_t* packet, uint32_t length, void* context) {
  const auto rest =
      std::count_if(packet + length, packet + 65535, [](uint8_t b) { return b != 0; });
  static_cast<ScriptedStream*>(context)->events.push_back("behind " + std::to_string(rest));
  return 0;
}

TEST(CommReceiverTest, BehindAPacketTheBufferIsAllZeroAlsoAfterALongerOne) {
  std::string longPacket = "0100 ";
  for (int i = 2; i < 0x100; ++i) {
    longPacket += "FF";
  }
  const auto stream = std::make_shared<ScriptedStream>(longPacket + "0003 7F", 1000);
  CCommReceiver receiver(stream, {AddNonZeroBytesBehind, nullptr, stream.get()});
  receiver.Run();
  EXPECT_THAT(stream->events, ElementsAre("asks 2", "asks 254", "behind 0", "asks 2", "asks 1",
                                          "behind 0", "asks 2"));
}

TEST(CommReceiverTest, AStoppedReceiverAsksForNothing) {
  const auto stream = std::make_shared<ScriptedStream>("0003 7F", 100);
  CCommReceiver receiver(stream, {AddPacket, AddError, stream.get()});
  receiver.Stop();
  receiver.Run();
  EXPECT_THAT(stream->events, testing::IsEmpty());
}

// Stops the receiver from within a callback, as an owner's Close on another thread may.
int StopIt(const uint8_t*, uint32_t, void* context) {
  static_cast<CCommReceiver*>(context)->Stop();
  return 0;
}

TEST(CommReceiverTest, AStopDuringACallbackEndsTheLoopWithoutAnotherRequest) {
  const auto stream = std::make_shared<ScriptedStream>("0003 7F  0003 80", 100);
  CCommReceiver receiver(stream, {});
  receiver.SetCallbacks({StopIt, nullptr, &receiver});
  receiver.Run();
  EXPECT_THAT(stream->events, ElementsAre("asks 2", "asks 1"));
}

}  // namespace
