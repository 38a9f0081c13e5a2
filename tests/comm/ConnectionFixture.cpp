// SPDX-License-Identifier: MIT
#include "comm/ConnectionFixture.h"

#include <future>

#include "Linux/LinuxThread.h"
#include "comm/CommCalls.h"
#include "support/CapturedLog.h"

void ConnectionFixture::SetUp() { ForgetCapturedLog(); }

void ConnectionFixture::TearDown() {
  Unlink();
  connection.reset();
  EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(20'000));
}

int ConnectionFixture::Link(const CommCallbacks* callbacks) {
  auto result =
      std::async(std::launch::async, [&] { return connection->Listen(port.Number(), callbacks); });
  EXPECT_EQ("[LISTEN]IP:127.0.0.1(PORT:" + std::to_string(port.Number()) + ")\n",
            output.NextLine());
  EXPECT_EQ(0, peer.ConnectTo(port.Number()));
  EXPECT_EQ("[ACCEPT]IP:127.0.0.1\n", output.NextLine());
  return result.get();
}

int ConnectionFixture::Link() {
  const CommCallbacks callbacks = recorder.Callbacks();
  return Link(&callbacks);
}

void ConnectionFixture::Unlink() {
  peer.Close();
  EXPECT_TRUE(CLinuxThread::WaitUntilNoneRuns(20'000));
  if (connection != nullptr) {
    EXPECT_EQ(0, connection->Close());
  }
}
