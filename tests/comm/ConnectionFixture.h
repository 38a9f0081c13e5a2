// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "comm/CommCalls.h"
#include "comm/CommSocket.h"
#include "comm/Recorder.h"
#include "support/LoopbackPeer.h"
#include "support/StreamCapture.h"

inline constexpr const char* kErrorEvent = "error ConnectError -1";

// A connection under test, its owner's record and the peer at its far end.
class ConnectionFixture : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Listens until the peer has connected; Listen's result.
  int Link(const CommCallbacks* callbacks);
  int Link();

  // The peer leaves, and the connection is closed once its receive thread has seen that.
  void Unlink();

  StreamCapture output{1};
  ReservedPort port;
  Recorder recorder;  // outlives the connection, as its owner does
  LoopbackPeer peer;
  std::shared_ptr<CCommSocketExport> connection =
      std::make_shared<CCommSocket>("Module", "Tag", std::make_shared<WatchedSocket>());
};
