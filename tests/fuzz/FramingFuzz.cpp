// SPDX-License-Identifier: MIT
// A byte stream, cut at any places, gives the packets that it consists of, in order, and one error
// report at its end. Input: a cut size, then the stream; 0 cuts at sizes taken from the stream.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "Check.h"
#include "comm/CommReceiver.h"

namespace {

// Gives the stream in pieces, then a shut-down.
class CutStream final : public CAbstractSocket {
 public:
  CutStream(std::string content, size_t cutSize) : stream(std::move(content)), cut(cutSize) {}
  int Listen(uint32_t) override { return 0; }
  int Connect(uint32_t) override { return 0; }
  int Close() override { return 0; }
  int Send(const uint8_t*, int) override { return -1; }
  int Recv(uint8_t* buffer, int capacity) override {
    const size_t left = stream.size() - position;
    if (capacity < 1 || left == 0) {
      return -1;
    }
    const size_t piece = cut != 0 ? cut : 1 + static_cast<unsigned char>(stream[position]) % 7;
    const size_t count = std::min({piece, left, static_cast<size_t>(capacity)});
    std::memcpy(buffer, stream.data() + position, count);
    position += count;
    return static_cast<int>(count);
  }

 private:
  const std::string stream;
  const size_t cut;
  size_t position = 0;
};

struct Seen {
  std::vector<std::pair<uint32_t, std::string>> packets;  // length field; bytes read for it
  int errors = 0;
};

size_t BytesFor(uint32_t lengthField) {
  return lengthField < 2 ? lengthField + 65536 : lengthField;
}

int Receive(const uint8_t* packet, uint32_t length, void* context) {
  static_cast<Seen*>(context)->packets.emplace_back(length,
                                                    std::string(packet, packet + BytesFor(length)));
  return 0;
}

int Fail(const std::string& text, int result, void* context) {
  Check(text == "ConnectError" && result == -1, "the error report");
  ++static_cast<Seen*>(context)->errors;
  return 0;
}

// The packets of a stream, found by walking over it.
std::vector<std::pair<uint32_t, std::string>> Split(const std::string& stream) {
  std::vector<std::pair<uint32_t, std::string>> packets;
  for (size_t at = 0; at + 2 <= stream.size();) {
    const uint32_t length =
        static_cast<unsigned char>(stream[at]) * 256U + static_cast<unsigned char>(stream[at + 1]);
    if (length == 2 || at + BytesFor(length) > stream.size()) {
      break;
    }
    packets.emplace_back(length, stream.substr(at, BytesFor(length)));
    at += BytesFor(length);
  }
  return packets;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) {
    return 0;
  }
  const std::string stream(data + 1, data + size);
  Seen seen;
  CCommReceiver(std::make_shared<CutStream>(stream, data[0]), {Receive, Fail, &seen}).Run();
  Check(seen.packets == Split(stream), "the stream's packets, whole and in order");
  Check(seen.errors == 1, "one error report");
  return 0;
}
