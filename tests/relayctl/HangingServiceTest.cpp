// SPDX-License-Identifier: MIT
#include "relayctl/HangingServiceTest.h"

#include <csignal>
#include <filesystem>

std::string HangingServiceTest::LongWrite() {
  const std::string name = "#PhysicalPort0";
  const size_t count = 60000;
  const auto number = [](size_t value) {
    return std::string{static_cast<char>(value >> 8), static_cast<char>(value & 0xFF)};
  };
  return number(2 + 2 + 2 + name.size() + 2 + 2 + count) + "\x04\x02" + number(name.size()) + name +
         "\x01\x01" + number(count) + std::string(count, 'x');
}

void HangingServiceTest::StickWrite() {
  relay->SendsBytes(LongWrite());
  ASSERT_TRUE(Eventually([this] { return IsWriting() && service->IsIdle(); }));
}

// The main thread and the port's never write to the terminal.
bool HangingServiceTest::IsWriting() const {
  for (const auto& thread : std::filesystem::directory_iterator(Process() + "/task")) {
    if (workplace::ReadWhole(thread.path() / "syscall").starts_with("1 ")) {
      return true;
    }
  }
  return false;
}

void HangingServiceTest::StopService() {
  service->Signal(SIGSTOP);
  ASSERT_TRUE(Eventually([this] {
    return workplace::ReadWhole(Process() + "/stat").find(") T ") != std::string::npos;
  }));
}
