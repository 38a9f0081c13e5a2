// SPDX-License-Identifier: MIT
// The C interface against a service that does what the test says. An answer may be sent before its
// question: it waits in the socket. docs/cpp-client.md has a program in C.
#include <gtest/gtest.h>
#include <poll.h>

#include <cerrno>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "ScriptedService.h"
#include "relayclient.h"
#include "support/Eventually.h"

namespace {

constexpr int kLongMs = 30000;
constexpr const char* kOpened = "0009 01 02 0001 58 0000";
constexpr const char* kRefused = "0009 01 02 0001 58 0004";
constexpr const char* kNoSuchPort = "0009 01 02 0001 58 0002";
constexpr const char* kFenceAnswer = "0009 01 02 0001 58 0003";

// Each event as a line of text.
struct Told {
  relayclient* client = nullptr;
  std::vector<std::string> lines;

  static std::vector<std::string>& Of(void* context) { return static_cast<Told*>(context)->lines; }
};

class CInterfaceTest : public testing::Test {
 protected:
  ~CInterfaceTest() override { relayclient_free(client); }

  void Make() {
    options.port = service.TcpPort();
    ASSERT_EQ(0, relayclient_new(&client, &options, &events));
  }

  // With a link to the service.
  void Start() {
    Make();
    ASSERT_EQ(0, relayclient_start(client));
    Link();
  }

  void Link() {
    ASSERT_TRUE(Eventually([this] {
      EXPECT_EQ(0, relayclient_run_for(client, 1)) << Text();
      return service.HasPeer() && relayclient_is_connected(client) == 1;
    }));
  }

  void StartAndOpen() {
    Start();
    service.Sends(kOpened);
    ASSERT_EQ(0, relayclient_open(client, "X", kLongMs)) << Text();
    EXPECT_EQ("00070102000158", Packet());
  }

  std::string Packet() {
    std::string packet;
    EXPECT_TRUE(Eventually([&] {
      const auto taken = service.Takes();
      packet = taken.value_or("");
      return taken || relayclient_run_for(client, 1) != 0;
    }));
    return packet;
  }

  // The next line, or the error's number.
  std::string Line(int limit = kLongMs, size_t room = 16) {
    std::vector<char> line(room);
    size_t length = 0;
    const int error = relayclient_read_line(client, "X", line.data(), room, &length, limit);
    return error == 0 ? std::string(line.data(), length) : std::to_string(error);
  }

  std::string Text() const { return relayclient_error_text(client); }

  ScriptedService service;
  relayclient_options options = {};
  relayclient_events events = {};
  relayclient* client = nullptr;
};

TEST_F(CInterfaceTest, OpensWritesAndReadsLines) {
  StartAndOpen();
  EXPECT_EQ(1, relayclient_is_open(client, "X"));
  service.Sends(kFenceAnswer);
  EXPECT_EQ(0, relayclient_write(client, "X", "ab", 2, kLongMs)) << Text();
  EXPECT_EQ("000D0402000158010100026162", Packet());
  EXPECT_EQ("000901020001584645", Packet());

  service.Sends("0012 04 02 0001 58 01 02 0007 6F 6E 65 0A 0A 74 77");  // "one\n\ntw"
  EXPECT_EQ("one", Line());
  EXPECT_EQ("", Line());
  EXPECT_EQ(std::to_string(ETIMEDOUT), Line(0));
  EXPECT_EQ("no line from X yet", Text());
  EXPECT_EQ(std::to_string(ETIMEDOUT), Line(3));
  EXPECT_EQ("no line from X within 3 ms", Text());
  service.Sends("000E 04 02 0001 58 01 02 0003 6F 00 0A");
  EXPECT_EQ(std::string("two\0", 4), Line(-1));

  service.Sends("0009 02 02 0001 58 0000");
  EXPECT_EQ(0, relayclient_close(client, "X", kLongMs)) << Text();
  EXPECT_EQ("00070202000158", Packet());
  EXPECT_EQ(0, relayclient_is_open(client, "X"));
}

TEST_F(CInterfaceTest, RefusesWhatCannotBe) {
  EXPECT_EQ(EINVAL, relayclient_new(nullptr, nullptr, nullptr));
  options.line_end = "";
  EXPECT_EQ(EINVAL, relayclient_new(&client, &options, nullptr));
  EXPECT_EQ(nullptr, client);
  EXPECT_EQ(EINVAL, relayclient_start(nullptr));
  EXPECT_EQ(EINVAL, relayclient_open(nullptr, "X", 0));
  relayclient_stop(nullptr);
  EXPECT_NE("", Text());

  options.line_end = nullptr;
  Make();
  EXPECT_EQ("", Text());
  EXPECT_EQ(EINVAL, relayclient_open(client, nullptr, 0));
  EXPECT_EQ(EINVAL, relayclient_open(client, "", 0));
  EXPECT_EQ("a port name is never empty", Text());
  EXPECT_EQ(0, relayclient_is_open(client, ""));
  EXPECT_EQ(EINVAL, relayclient_send(client, "X", nullptr, 1));
  EXPECT_EQ(EINVAL, relayclient_write(client, "X", nullptr, 1, 0));
  EXPECT_EQ(EINVAL, relayclient_read_line(client, "X", nullptr, 1, nullptr, 0));
}

TEST_F(CInterfaceTest, SaysWhatIsMissing) {
  Make();
  EXPECT_EQ(ENOTCONN, relayclient_run_for(client, 0));
  EXPECT_EQ(ENOTCONN, relayclient_process(client));
  EXPECT_EQ(ENOTCONN, relayclient_open(client, "X", -1));
  EXPECT_EQ("the link is not started", Text());
  EXPECT_EQ(ENOTCONN, relayclient_send(client, "X", "ab", 2));
  EXPECT_EQ(ENOTCONN, relayclient_write(client, "X", "ab", 2, -1));
  EXPECT_EQ("X is not open at the moment", Text());
  EXPECT_EQ(ENOENT, relayclient_close(client, "Y", -1));
  char line = 0;
  EXPECT_EQ(ENOENT, relayclient_read_line(client, "Y", &line, 1, nullptr, -1));
  EXPECT_EQ(0U, relayclient_unsent(client, "Y"));
}

TEST_F(CInterfaceTest, TellsThatNobodyListens) {
  const ScriptedService silent(false);
  options.port = silent.TcpPort();
  options.patience_ms = 1;
  options.retry_pause_ms = 1;
  ASSERT_EQ(0, relayclient_new(&client, &options, nullptr));
  EXPECT_EQ(0, relayclient_start(client));
  EXPECT_EQ(ECONNREFUSED, relayclient_open(client, "X", -1));
  EXPECT_EQ("nothing listens on 127.0.0.1:" + std::to_string(silent.TcpPort()) +
                ": is the service running?",
            Text());
  EXPECT_EQ(ECONNREFUSED, relayclient_process(client));
  relayclient_stop(client);
  EXPECT_EQ(ENOTCONN, relayclient_process(client));
}

TEST_F(CInterfaceTest, ARefusedPortCanBeOpenedAgain) {
  Start();
  service.Sends(kRefused);
  EXPECT_EQ(EIO, relayclient_open(client, "X", kLongMs));
  EXPECT_EQ("the device could not be opened or set up, or its node is missing", Text());
  service.Sends(kNoSuchPort);
  EXPECT_EQ(ENODEV, relayclient_open(client, "X", kLongMs));
  service.Sends(kOpened);
  EXPECT_EQ(0, relayclient_open(client, "X", kLongMs));
  for (int open = 0; open < 3; ++open) {
    EXPECT_EQ("00070102000158", Packet());
  }
  service.Sends("0009 02 02 0001 58 0005");
  EXPECT_EQ(EIO, relayclient_close(client, "X", kLongMs));
  EXPECT_EQ("the port could not be closed, and stays open", Text());
}

TEST_F(CInterfaceTest, LosesNoLineInSilence) {
  options.longest_line = 3;
  StartAndOpen();
  service.Sends("0018 04 02 0001 58 01 02 000D 61 0A 62 62 62 62 0A 63 63 63 0A 64 0A");
  EXPECT_EQ(std::to_string(EOVERFLOW), Line());
  EXPECT_EQ("lines of X were dropped", Text());
  EXPECT_EQ("a", Line(kLongMs, 2));
  EXPECT_EQ(std::to_string(EMSGSIZE), Line(kLongMs, 3));
  EXPECT_EQ("a line of 3 bytes from X does not fit", Text());
  EXPECT_EQ("ccc", Line(kLongMs, 4));
  EXPECT_EQ("d", Line());
}

TEST_F(CInterfaceTest, AWriteGoesOnBehindItsLimit) {
  StartAndOpen();
  const std::string data(60000, 'x');
  EXPECT_EQ(ETIMEDOUT, relayclient_write(client, "X", data.data(), data.size(), 0));
  EXPECT_EQ("not all data for X were taken yet", Text());
  EXPECT_LT(0U, relayclient_unsent(client, "X"));
  constexpr size_t kAround = size_t{2} * 11;  // hex digits of a data packet beside its data
  for (size_t sent = 0; sent < data.size();) {
    const std::string packet = Packet();
    ASSERT_FALSE(packet.empty()) << Text();
    if (packet.substr(4, 2) == "04") {
      sent += (packet.size() - kAround) / 2;
    } else {
      service.Sends(kFenceAnswer);
    }
  }
  EXPECT_EQ(0U, relayclient_unsent(client, "X"));
}

TEST_F(CInterfaceTest, AWriteEndsWithItsLink) {
  options.reconnect = 1;
  options.retry_pause_ms = 1;
  StartAndOpen();
  service.Leave();
  EXPECT_EQ(ECONNRESET, relayclient_write(client, "X", "ab", 2, kLongMs));
  EXPECT_EQ("the link ended while data for X were on their way", Text());
  Link();
  EXPECT_EQ("00070102000158", Packet());  // of its own accord
}

TEST_F(CInterfaceTest, WaitsInAPollLoopOfTheProgram) {
  Make();
  ASSERT_EQ(0, relayclient_start(client));
  EXPECT_EQ(ETIMEDOUT, relayclient_open(client, "X", 0));
  bool isAnswered = false;
  EXPECT_TRUE(Eventually([&] {
    if (service.HasPeer() && !isAnswered) {
      service.Sends(kOpened);
      isAnswered = true;
    }
    pollfd ready{relayclient_descriptor(client), relayclient_poll_events(client), 0};
    (void)poll(&ready, 1, isAnswered ? relayclient_timeout_ms(client) : 1);
    EXPECT_EQ(0, relayclient_process(client)) << Text();
    return relayclient_is_open(client, "X") == 1;
  }));
}

TEST_F(CInterfaceTest, TellsWhatHappens) {
  Told told;
  events.context = &told;
  events.connected = [](void* context) { Told::Of(context).push_back("connected"); };
  events.disconnected = [](void* context, int error, const char* text, int pause, unsigned tries) {
    Told::Of(context).push_back(std::to_string(error) + " " + std::string(text).substr(0, 11) +
                                " " + std::to_string(pause) + " " + std::to_string(tries));
  };
  events.opened = [](void* context, const char* port, int error, const char* text) {
    Told::Of(context).push_back(std::string(port) + " " + std::to_string(error) + " " + text);
  };
  events.received = [](void* context, const char* port, const void* data, size_t size) {
    Told::Of(context).push_back(std::string(port) + " " +
                                std::string(static_cast<const char*>(data), size));
  };
  options.reconnect = 1;
  options.retry_pause_ms = 1;
  StartAndOpen();
  service.Sends("000C 04 02 0001 58 01 02 0001 41");
  EXPECT_TRUE(
      Eventually([&] { return relayclient_run_for(client, 1) != 0 || told.lines.size() == 3; }));
  EXPECT_EQ(std::to_string(ENOENT), Line());
  service.Leave();
  Link();
  const std::string end = std::to_string(ECONNRESET) + " the service 1 0";
  EXPECT_EQ((std::vector<std::string>{"connected", "X 0 open", "X A", end, "connected"}),
            told.lines);
}

TEST_F(CInterfaceTest, TellsThatItDoesNotTryAgain) {
  int pause = 0;
  events.context = &pause;
  events.disconnected = [](void* context, int, const char*, int next, unsigned) {
    *static_cast<int*>(context) = next;
  };
  StartAndOpen();
  service.Leave();
  EXPECT_EQ(ECONNRESET, relayclient_run_for(client, kLongMs));
  EXPECT_EQ(-1, pause);
}

TEST_F(CInterfaceTest, AnEventFunctionDoesNotWait) {
  Told told;
  events.context = &told;
  events.connected = [](void* context) {
    relayclient* const caller = static_cast<Told*>(context)->client;
    for (const int error : {relayclient_run_for(caller, 0), relayclient_process(caller),
                            relayclient_open(caller, "X", 1), relayclient_open(caller, "X", 0)}) {
      Told::Of(context).push_back(std::to_string(error));
    }
  };
  Make();
  told.client = client;
  ASSERT_EQ(0, relayclient_start(client));
  Link();
  const std::string refused = std::to_string(EDEADLK);
  EXPECT_EQ((std::vector<std::string>{refused, refused, refused, std::to_string(ETIMEDOUT)}),
            told.lines);
  EXPECT_EQ("00070102000158", Packet());
}

TEST_F(CInterfaceTest, NoExceptionLeavesIt) {
  events.received = [](void*, const char*, const void* data, size_t) {
    switch (*static_cast<const char*>(data)) {
      case 'A':
        throw 1;
      case 'B':
        throw std::bad_alloc();
      default:
        throw std::runtime_error("odd");
    }
  };
  StartAndOpen();
  service.Sends("000C 04 02 0001 58 01 02 0001 41");
  EXPECT_EQ(ENOTRECOVERABLE, relayclient_run_for(client, kLongMs));
  service.Sends("000C 04 02 0001 58 01 02 0001 42");
  EXPECT_EQ(ENOMEM, relayclient_run_for(client, kLongMs));
  service.Sends("000C 04 02 0001 58 01 02 0001 43");
  EXPECT_EQ(ENOTRECOVERABLE, relayclient_run_for(client, kLongMs));
  EXPECT_EQ("odd", Text());
}

}  // namespace
