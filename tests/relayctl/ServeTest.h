// SPDX-License-Identifier: MIT
// relayctl serve, and a program that tells it by lines what to do.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "relayctl/RelayctlTest.h"

// A pipe with a name.
class Pipe {
 public:
  explicit Pipe(const char* path)
      : descriptor((mkfifo(path, 0600), open(path, O_RDWR | O_NONBLOCK | O_CLOEXEC))) {}
  ~Pipe() { (void)close(descriptor); }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  bool Writes(const std::string& bytes) const { return WritesAll(descriptor, bytes); }

 private:
  int descriptor;
};

class ServeTest : public RelayctlTest {
 protected:
  static constexpr const char* kOrders = "/tmp/e2e/orders";

  // Starts it with these options, and connects.
  void Serve(const std::string& options) {
    serve = std::make_unique<Background>("relayctl serve " + options + " <" + kOrders);
    Connect();
  }

  // Once it listens for the next relay service: before, it would be reset.
  void Connect() {
    ASSERT_TRUE(ListensAgain()) << serve->Output();
    relay = std::make_unique<Relay>();
    ASSERT_TRUE(relay->IsConnected()) << serve->Output();
  }

  bool ListensAgain() {
    ++connections;
    return Eventually([this] { return Told("listening on") == connections; });
  }

  // Gives the order, and waits until it is told, once more, that this has happened.
  void Order(const std::string& order, const std::string& told) const {
    const size_t before = Told(told);
    ASSERT_TRUE(orders.Writes(order + "\n"));
    ASSERT_TRUE(Eventually([&] { return Told(told) > before; })) << serve->Output();
  }

  // Asks for the end, which is to come whatever else is under way.
  void ExpectEnd() const {
    serve->Signal(SIGTERM);
    EXPECT_EQ("exit 0", serve->WaitForExit()) << serve->Output();
  }

  const Pipe orders{kOrders};
  std::unique_ptr<Background> serve;

 private:
  // How often it has said so.
  size_t Told(const std::string& text) const {
    const std::string output = serve->Output();
    size_t count = 0;
    for (size_t at = 0; (at = output.find(text, at)) != std::string::npos; ++at) {
      ++count;
    }
    return count;
  }

  size_t connections = 0;
};
