// SPDX-License-Identifier: MIT
#pragma once

#include "relay/ByteQueue.h"
#include "serve/ServedDevice.h"

// A plug that joins the line's two wires. Takes no more while 64 KiB wait to be read.
class EchoDevice : public ServedDevice {
 public:
  explicit EchoDevice(const Line& /*line*/) {}

  void Open() override { echo.Clear(); }
  size_t Take(std::string_view bytes) override;
  std::string Give(size_t most) override;
  std::optional<relay::Clock::time_point> Due() const override;

 private:
  relay::ByteQueue echo;
};
