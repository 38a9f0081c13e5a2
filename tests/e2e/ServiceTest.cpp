// SPDX-License-Identifier: MIT
#include "e2e/ServiceTest.h"

#include <unistd.h>

#include <iostream>

ServiceTest::~ServiceTest() {
  if (HasFailure()) {
    std::cerr << "--- log\n"
              << LogFile::Text().substr(0, 4000) << "--- standard output\n"
              << Service::Output().substr(0, 4000) << "--- standard error\n"
              << Service::Errors().substr(0, 2000) << "---\n";
  }
}

void ServiceTest::Link(uint16_t port) {
  ++links;
  ASSERT_TRUE(Service::Prints("[LISTEN]IP:", links)) << "the service does not listen";
  relay = std::make_unique<Relay>(port);
  ASSERT_TRUE(relay->IsConnected());
  ASSERT_TRUE(Service::Prints("[ACCEPT]IP:127.0.0.1\n", links)) << "the service does not accept";
}

void ServiceTest::StartWithOpenPort(Service::Session session) {
  device = std::make_unique<Device>();
  StartLinked(session);
  ASSERT_EQ(Wire(kPort0Opened), relay->Answer(kOpenPort0));
}

void ServiceTest::Settle() {
  ASSERT_TRUE(Eventually([this] { return service->IsIdle(); }));
}

size_t ServiceTest::Clog() {
  const std::string piece(4096, 'x');
  size_t sent = 0;
  int halted = 0;
  EXPECT_TRUE(Eventually([&] {
    for (ssize_t count = 0; (count = write(device->FarEnd(), piece.data(), piece.size())) > 0;) {
      sent += static_cast<size_t>(count);
      halted = 0;
    }
    halted = service->IsIdle() ? halted + 1 : 0;
    return halted == 50;
  }));
  return sent;
}

std::string ServiceTest::Stop(int signal) {
  Settle();
  service->Signal(signal);
  return service->WaitForExit();
}
