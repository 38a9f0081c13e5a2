// SPDX-License-Identifier: MIT
#include "core/Fakes.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>

#include "platform/KXLogger.h"
#include "platform/Libvost.h"
#include "support/Hex.h"

World& World::Get() {
  static World& world = *new World;  // outlives the service, which ends after main
  return world;
}

std::shared_ptr<FakeRelay> World::RelayNumber(size_t count) {
  std::unique_lock guard(mutex);
  const bool came =
      changed.wait_for(guard, std::chrono::seconds(20), [&] { return listening.size() >= count; });
  if (!came) {
    ADD_FAILURE() << "only " << listening.size() << " relay connections have listened";
    return std::make_shared<FakeRelay>();
  }
  return relays.at(count - 1);
}

void World::Listening(FakeRelay* relay) {
  const std::lock_guard guard(mutex);
  listening.push_back(relay);
  changed.notify_all();
}

int World::TimesLogged(const std::string& line) {
  const std::lock_guard guard(mutex);
  return static_cast<int>(std::count(log.begin(), log.end(), line));
}

bool World::Logged(const std::string& line) { return TimesLogged(line) != 0; }

int FakePort::Open(const std::string& name, const ReceiveCallback& given,
                   const SerialSettings& settings) {
  portName = name;
  callback = World::Get().receive = given;
  openedWith = settings;
  if (!receivingDeferred) {
    BeginReceiving();
  }
  return openResult;
}

void FakePort::BeginReceiving() {
  if (!receivesAtOnce.empty()) {
    callback.onData(portName, reinterpret_cast<const uint8_t*>(receivesAtOnce.data()),
                    static_cast<int>(receivesAtOnce.size()), callback.context);
  }
}

int FakePort::Send(const uint8_t* data, int length) {
  const bool fails = failingWrite == static_cast<int>(writes.size());
  writes.push_back(ToHex(data, static_cast<size_t>(length)));
  return fails ? -1 : length;
}

int FakePort::Close() {
  ++closes;
  return closeResult;
}

int FakeRelay::Listen(uint32_t port, const CommCallbacks* given) {
  listenedOn = port;
  callbacks = *given;
  World::Get().Listening(this);
  if (whenListening) {
    whenListening();
  }
  return listenResult;
}

int FakeRelay::Send(const uint8_t* data, int length) {
  if (whenSending) {
    whenSending();
  }
  const std::lock_guard guard(World::Get().mutex);
  sent.push_back(ToHex(data, static_cast<size_t>(length)));
  return length;
}

int FakeRelay::Close() {
  ++closes;
  return 0;
}

void FakeRelay::Sends(const std::string& hex) {
  const std::vector<uint8_t> packet = FromHex(hex);
  (void)callbacks.onReceive(packet.data(), static_cast<uint32_t>(packet.size()), callbacks.context);
}

std::shared_ptr<CCommSocketExport> MakeRelay(const std::string&, const std::string&) {
  auto relay = std::make_shared<FakeRelay>();
  World::Get().prepareRelay(*relay);
  const std::lock_guard guard(World::Get().mutex);
  World::Get().relays.push_back(relay);
  return relay;
}

std::shared_ptr<CSerialPortExport> MakePort(const std::string&, const std::string&) {
  auto port = std::make_shared<FakePort>();
  World::Get().prepare(*port);
  World::Get().ports.push_back(port);
  return port;
}

// The platform library.
int Libvost::getSystemConnectInfo(KX_CONNECT_INFO& info) {
  if (World::Get().relayPort == nullptr) {
    return 0;
  }
  std::strncpy(info.port, World::Get().relayPort->c_str(), sizeof info.port - 1);
  return 1;
}

int Libvost::getSerialByPortID(KX_SERIAL& serial, char* portId) {
  int& state = World::Get().cancelState;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
  pthread_setcancelstate(state, nullptr);
  const auto entry = World::Get().configuration.find(portId);
  if (entry == World::Get().configuration.end()) {
    return 0;
  }
  KX_TEXT* const fields[] = {&serial.baud, &serial.data, &serial.parity, &serial.stop,
                             &serial.flow};
  for (size_t i = 0; i < entry->second.size(); ++i) {
    std::strncpy(*fields[i], entry->second[i].c_str(), KX_TEXT_SIZE - 1);
  }
  return 1;
}

void writelog(const char*, const char* file, const char*, const char*, const char* message,
              int level) {
  const std::lock_guard guard(World::Get().mutex);
  World::Get().log.push_back(std::to_string(level) + " " + file + " " + message);
}

// Replaced at link time.
extern "C" {

int __real_usleep(useconds_t microseconds);
int __wrap_usleep(useconds_t microseconds);

int __wrap_usleep(useconds_t microseconds) {
  World::Get().whenPausing();
  return __real_usleep(microseconds);
}

}  // extern "C"
