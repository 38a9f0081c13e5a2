// SPDX-License-Identifier: MIT
#include <algorithm>
#include <memory>
#include <utility>

#include "serial/SerialPortTest.h"

std::string Receiver::Bytes() const {
  const std::lock_guard guard(lock);
  return bytes;
}

std::vector<std::string> Receiver::Names() const {
  const std::lock_guard guard(lock);
  return names;
}

int Receiver::Events() const {
  const std::lock_guard guard(lock);
  return events;
}

bool Receiver::WaitFor(const std::string& expected) const {
  return Eventually([&] { return Bytes() == expected; });
}

void Receiver::OnData(const std::string& portName, const uint8_t* data, int length, void* context) {
  auto& self = *static_cast<Receiver*>(context);
  {
    const std::lock_guard guard(self.lock);
    self.names.push_back(portName);
    self.bytes.append(data, data + length);
  }
  if (self.hook) {
    self.hook(data, length);
  }
}

void Receiver::OnEvent(void* context) {
  auto& self = *static_cast<Receiver*>(context);
  const std::lock_guard guard(self.lock);
  ++self.events;
}

void SerialPortTest::TearDown() {
  port.reset();
  EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(20'000));
  EXPECT_EQ(0, receiver.Events());
}

void SerialPortTest::Plug() {
  line = std::make_unique<PtyLine>();
  calls.Follow(kNode, line->Node());
}

void SerialPortTest::Unplug() {
  calls.Follow(kNode, "/dev/no-such-device");  // first: the number may soon be another test's
  line->HangUp();
}

bool SerialPortTest::WaitForOpens(int count) {
  return Eventually([&] { return calls.Count("open") >= count; });
}

void SerialPortTest::UseFakeDevice() {
  port = std::make_shared<CSerialPort>("TheModule", "TheTag", [this] { return device; });
}

void SerialPortTest::ScriptReads(std::vector<std::string> chunks) {
  UseFakeDevice();
  device->onRead = [this, chunks = std::move(chunks), next = size_t{0}](uint8_t* buffer,
                                                                        int capacity) mutable {
    if (next == chunks.size()) {
      scriptEnded = true;
      return FakeDevice::Idle(buffer, capacity);
    }
    const std::string& chunk = chunks[next++];
    std::copy_n(chunk.data(), std::min(chunk.size(), static_cast<size_t>(capacity)), buffer);
    return static_cast<int>(chunk.size());
  };
}

bool SerialPortTest::WaitForScriptEnd() const {
  return Eventually([this] { return scriptEnded.load(); });
}
