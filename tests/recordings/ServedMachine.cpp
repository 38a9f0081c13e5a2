// SPDX-License-Identifier: MIT
#include "recordings/ServedMachine.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "e2e/support/Transfer.h"
#include "serial/UsbPlaces.h"
#include "support/Eventually.h"

namespace {

constexpr const char* kOrders = "/tmp/e2e/orders";

std::vector<std::string> AllPorts() {
  std::vector<std::string> ports = {"#PhysicalPort0"};
  for (int number = 0; number < kUsbPortCount; ++number) {
    ports.push_back("#USBSerialPort" + std::to_string(number));
  }
  return ports;
}

std::string PathOf(const std::string& port) { return "/tmp/e2e/" + port.substr(1); }

// Where the tests run under an emulator, it stands in front.
std::string CommandLine() {
  const char* const emulator = std::getenv("SPH_EMULATOR");
  const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe");
  std::string command = std::string("exec ") + (emulator != nullptr ? emulator : "") + " " +
                        (self.parent_path() / "relayctl").string() + " serve";
  for (const std::string& port : AllPorts()) {
    command += " --port '" + port + "=pty:" + PathOf(port) + "'";
  }
  return command + " <" + kOrders;
}

}  // namespace

ServedMachine::ServedMachine() {
  if (mkfifo(kOrders, 0600) == 0) {
    orders = open(kOrders, O_RDWR | O_NONBLOCK | O_CLOEXEC);
  }
  program = std::make_unique<ChildProcess>(ChildProcess::Start{
      {"/bin/sh", "-c", CommandLine()}, OwnEnvironment(), workplace::kOutput, workplace::kErrors});
  for (const std::string& port : AllPorts()) {
    Order("unplug " + port, port + ": unplugged");
  }
}

ServedMachine::~ServedMachine() {
  for (const auto& nearEnd : nearEnds) {
    (void)close(nearEnd.second);
  }
  (void)close(orders);
}

size_t ServedMachine::Told(const std::string& text) {
  const std::string all = workplace::ReadWhole(workplace::kErrors);
  size_t count = 0;
  for (size_t at = 0; (at = all.find(text + "\n", at)) != std::string::npos; ++at) {
    ++count;
  }
  return count;
}

bool ServedMachine::Tells(const std::string& text, size_t times) {
  return Eventually([&] { return Told(text) >= times; });
}

// Waits until it has been carried out.
void ServedMachine::Order(const std::string& order, const std::string& told) {
  const size_t before = Told(told);
  if (!WritesAll(orders, order + "\n") || !Tells(told, before + 1)) {
    throw std::runtime_error("\"" + order + "\" is not done");
  }
}

void ServedMachine::Plug(const std::string& port, const std::string& ids) {
  Order("plug " + port + " " + ids, port + ": plugged in");
  nearEnds[port] = open(PathOf(port).c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
}

void ServedMachine::PlugWithoutNode(const std::string& port) {
  Order("status " + port + " 4", port + ": the next open is answered with status 4");
}

bool ServedMachine::Unplug(const std::string& port, bool /*isOpen*/) {
  Order("unplug " + port, port + ": unplugged");
  (void)close(nearEnds[port]);
  nearEnds.erase(port);
  return true;
}

std::vector<std::string> ServedMachine::Plugged() const {
  std::vector<std::string> ports;
  for (const auto& nearEnd : nearEnds) {
    ports.push_back(nearEnd.first);
  }
  return ports;
}

bool ServedMachine::Sends(const std::string& port, const std::string& bytes) {
  return WritesAll(nearEnds.at(port), bytes);
}

std::string ServedMachine::Reads(const std::string& port, size_t count) {
  return ReadsAll(nearEnds.at(port), count);
}

std::string ServedMachine::ReadsWaiting(const std::string& port) {
  std::string bytes(4096, '\0');
  const ssize_t count = read(nearEnds.at(port), bytes.data(), bytes.size());
  bytes.resize(count > 0 ? static_cast<size_t>(count) : 0);
  return bytes;
}

bool ServedMachine::Listens(size_t times) const {
  return Tells("relayctl: listening on 127.0.0.1:60004", times);
}

bool ServedMachine::Accepts(size_t times) const {
  return Tells("relayctl: a relay service is there", times);
}

// It has one thread.
bool ServedMachine::IsIdle() const {
  const std::string stat =
      workplace::ReadWhole("/proc/" + std::to_string(program->Pid()) + "/stat");
  return stat.find(") S ") != std::string::npos;
}

// As a shell tells a signal, so does it tell what would end the service.
std::string ServedMachine::WaitForEnd() {
  const std::string end = program->WaitForExit();
  return end == "exit 134" ? "signal 6" : end;
}
