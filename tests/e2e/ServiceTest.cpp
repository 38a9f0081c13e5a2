// SPDX-License-Identifier: MIT
#include "e2e/ServiceTest.h"

#include <iostream>

ServiceTest::~ServiceTest() {
  if (HasFailure()) {
    std::cerr << "--- log\n"
              << LogFile::Text().substr(0, 8000) << "--- standard output\n"
              << Service::Output().substr(0, 4000) << "--- standard error\n"
              << Service::Errors().substr(0, 8000) << "---\n";
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

std::string ServiceTest::Stop(int signal) {
  service->Signal(signal);
  return service->WaitForExit();
}
