// SPDX-License-Identifier: MIT
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <future>
#include <memory>
#include <string>

#include "Linux/LinuxSocket.h"
#include "Linux/SignalMask.h"
#include "support/Eventually.h"
#include "support/Hex.h"
#include "support/LoopbackPeer.h"
#include "support/StreamCapture.h"

namespace {

bool refusesReuse = false;           // setsockopt says so, but grants it: the port is reserved
std::atomic<bool> receiving{false};  // a recv has begun

}  // namespace

extern "C" {

int __real_setsockopt(int socket, int level, int name, const void* value, socklen_t size);
int __wrap_setsockopt(int socket, int level, int name, const void* value, socklen_t size);
int __wrap___setsockopt64(int socket, int level, int name, const void* value, socklen_t size);

int __wrap_setsockopt(int socket, int level, int name, const void* value, socklen_t size) {
  const int result = __real_setsockopt(socket, level, name, value, size);
  return refusesReuse && name == SO_REUSEADDR ? -1 : result;
}

// What it is called where time has 64 bits on a 32-bit machine.
int __wrap___setsockopt64(int socket, int level, int name, const void* value, socklen_t size) {
  return __wrap_setsockopt(socket, level, name, value, size);
}

ssize_t __real_recv(int socket, void* buffer, size_t capacity, int flags);
ssize_t __wrap_recv(int socket, void* buffer, size_t capacity, int flags);

ssize_t __wrap_recv(int socket, void* buffer, size_t capacity, int flags) {
  receiving = true;
  return __real_recv(socket, buffer, capacity, flags);
}

}  // extern "C"

namespace {

std::string ListenLine(const ReservedPort& port) {
  return "[LISTEN]IP:127.0.0.1(PORT:" + std::to_string(port.Number()) + ")\n";
}

class LinuxSocketTest : public testing::Test {
 protected:
  ~LinuxSocketTest() override { refusesReuse = false; }

  // Listens until the peer has been accepted.
  int ListenAndConnect(const char* peerAddress = "127.0.0.1") {
    auto result = std::async(std::launch::async, [this] { return socket.Listen(port.Number()); });
    EXPECT_EQ(ListenLine(port), output.NextLine());
    EXPECT_EQ(0, peer.ConnectTo(port.Number(), peerAddress));
    return result.get();
  }

  std::string ReceiveHex(int capacity) {
    uint8_t buffer[64] = {};
    const int count = socket.Recv(buffer, capacity);
    return count < 0 ? std::to_string(count) : ToHex(buffer, static_cast<size_t>(count));
  }

  int SendHex(const std::string& text) {
    const std::vector<uint8_t> bytes = FromHex(text);
    return socket.Send(bytes.data(), static_cast<int>(bytes.size()));
  }

  // Nothing listens at the port.
  bool PortIsFree() const {
    LoopbackPeer probe;
    return probe.ConnectTo(port.Number()) == ECONNREFUSED;
  }

  StreamCapture output{STDOUT_FILENO};
  ReservedPort port;
  LoopbackPeer peer;
  CLinuxSocket socket;
};

TEST_F(LinuxSocketTest, ListenPrintsItsPortBlocksUntilAClientConnectsAndReturns0) {
  auto result = std::async(std::launch::async, [this] { return socket.Listen(port.Number()); });
  EXPECT_EQ(ListenLine(port), output.NextLine());
  EXPECT_EQ(std::future_status::timeout, result.wait_for(std::chrono::milliseconds(50)));
  EXPECT_EQ(0, peer.ConnectTo(port.Number()));
  EXPECT_EQ("[ACCEPT]IP:127.0.0.1\n", output.NextLine());
  EXPECT_EQ(0, result.get());
  EXPECT_EQ("", output.Rest());
}

TEST_F(LinuxSocketTest, BytesTravelBothWays) {
  ASSERT_EQ(0, ListenAndConnect());
  peer.Sends("00 FF 41");
  EXPECT_EQ("00FF", ReceiveHex(2));
  EXPECT_EQ("41", ReceiveHex(64));
  EXPECT_EQ(2, SendHex("0D0A"));
  EXPECT_EQ("0D0A", peer.Receives(2));
}

TEST_F(LinuxSocketTest, APortHeldByAnotherFailsWithEADDRINUSEAndNoLine) {
  port.KeepForItself();
  EXPECT_EQ(EADDRINUSE, socket.Listen(port.Number()));
  EXPECT_EQ("", output.Rest());
  EXPECT_EQ(-1, SendHex("41"));
}

TEST_F(LinuxSocketTest, ASecondListenReturns0AtOnceAndAcceptsNobody) {
  ASSERT_EQ(0, ListenAndConnect());
  EXPECT_EQ("[ACCEPT]IP:127.0.0.1\n", output.NextLine());
  EXPECT_EQ(0, socket.Listen(port.Number()));
  EXPECT_EQ("", output.Rest());
  peer.Sends("41");
  EXPECT_EQ("41", ReceiveHex(1)) << "the first peer is still the one";
}

// The kernel keeps one more than it is told to.
TEST_F(LinuxSocketTest, TwoClientsMayWaitAndNoMore) {
  ASSERT_EQ(0, ListenAndConnect());
  LoopbackPeer second;
  LoopbackPeer third;
  ASSERT_EQ(0, second.ConnectTo(port.Number()));
  ASSERT_EQ(0, third.ConnectTo(port.Number()));
  const int fourth = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port.Number()));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  (void)connect(fourth, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  pollfd connected = {fourth, POLLOUT, 0};
  EXPECT_EQ(0, poll(&connected, 1, 50)) << "its first segment is dropped";
  (void)close(fourth);
}

TEST_F(LinuxSocketTest, APeerFromAnotherAddressIsRefusedWithAResultThatIsNot0) {
  errno = 0;
  EXPECT_NE(0, ListenAndConnect("127.0.0.2"));
  EXPECT_EQ("[ACCEPT]IP:127.0.0.2\n", output.NextLine());
  EXPECT_TRUE(peer.SeesEnd());
  EXPECT_TRUE(PortIsFree());
}

TEST_F(LinuxSocketTest, ConnectWhereNobodyListensReturnsECONNREFUSEDAndNoLine) {
  EXPECT_EQ(ECONNREFUSED, socket.Connect(port.Number()));
  EXPECT_EQ("", output.Rest());
  EXPECT_EQ(-1, SendHex("41"));
  EXPECT_EQ(ECONNREFUSED, socket.Connect(port.Number())) << "not connected, so it tries again";
}

TEST_F(LinuxSocketTest, ConnectPrintsItsPortAndReturns0) {
  peer.ListenOn(port.Number());
  EXPECT_EQ(0, socket.Connect(port.Number()));
  EXPECT_EQ("[CONNECT]IP:127.0.0.1(PORT:" + std::to_string(port.Number()) + ")\n",
            output.NextLine());
  peer.Accept();
  EXPECT_EQ(1, SendHex("41"));
  EXPECT_EQ("41", peer.Receives(1));
}

TEST_F(LinuxSocketTest, ASecondConnectReturns0AtOnceAndConnectsNowhere) {
  peer.ListenOn(port.Number());
  ASSERT_EQ(0, socket.Connect(port.Number()));
  (void)output.NextLine();
  EXPECT_EQ(0, socket.Connect(1));
  EXPECT_EQ("", output.Rest());
}

TEST_F(LinuxSocketTest, ThePortIsTheLow16BitsAndTheLineShowsTheWholeArgumentAsSigned) {
  peer.ListenOn(port.Number());
  ASSERT_EQ(0, socket.Connect(0xFFFF0000U + port.Number()));
  const int shown = static_cast<int>(port.Number()) - 65536;
  EXPECT_EQ("[CONNECT]IP:127.0.0.1(PORT:" + std::to_string(shown) + ")\n", output.NextLine());
}

TEST_F(LinuxSocketTest, RecvAfterThePeerHasClosedReturnsMinus1) {
  ASSERT_EQ(0, ListenAndConnect());
  peer.Close();
  EXPECT_EQ("-1", ReceiveHex(2));
}

TEST_F(LinuxSocketTest, RecvOfNothingReturnsMinus1WithoutWaiting) {
  ASSERT_EQ(0, ListenAndConnect());
  EXPECT_EQ("-1", ReceiveHex(0));
  peer.Sends("41");
  EXPECT_EQ("41", ReceiveHex(1));
}

TEST_F(LinuxSocketTest, SendAndRecvWithoutAConnectionReturnMinus1) {
  EXPECT_EQ(-1, SendHex("41"));
  EXPECT_EQ("-1", ReceiveHex(1));
}

TEST_F(LinuxSocketTest, CloseEndsTheStreamAndTheListeningEnd) {
  ASSERT_EQ(0, ListenAndConnect());
  EXPECT_EQ(0, socket.Close());
  EXPECT_TRUE(peer.SeesEnd());
  EXPECT_TRUE(PortIsFree());
}

TEST_F(LinuxSocketTest, CloseTwiceReturns0AndClosesNothingTheSecondTime) {
  ASSERT_EQ(0, ListenAndConnect());
  EXPECT_EQ(0, socket.Close());
  const int reused = dup(STDIN_FILENO);  // takes a number that was just let go
  const int reusedToo = dup(STDIN_FILENO);
  EXPECT_EQ(0, socket.Close());
  EXPECT_EQ(0, close(reused));
  EXPECT_EQ(0, close(reusedToo));
}

TEST_F(LinuxSocketTest, AClosedSocketCanBeOpenedAgainAtTheSamePort) {
  ASSERT_EQ(0, ListenAndConnect());
  (void)output.NextLine();
  EXPECT_EQ(0, socket.Close());
  peer.Close();
  EXPECT_EQ(0, ListenAndConnect());
}

TEST_F(LinuxSocketTest, TheDestructorCloses) {
  auto shortLived = std::make_unique<CLinuxSocket>();
  peer.ListenOn(port.Number());
  ASSERT_EQ(0, shortLived->Connect(port.Number()));
  peer.Accept();
  shortLived.reset();
  EXPECT_TRUE(peer.SeesEnd());
}

// How many sockets this process has, when all of them close at exec; otherwise -1.
int SocketsThatCloseOnExec() {
  int count = 0;
  DIR* const directory = opendir("/proc/self/fd");
  while (const dirent* entry = readdir(directory)) {
    char target[64] = {};
    const ssize_t length = readlinkat(dirfd(directory), entry->d_name, target, sizeof target - 1);
    if (length > 0 && std::string(target).starts_with("socket:")) {
      count = (fcntl(std::stoi(entry->d_name), F_GETFD) & FD_CLOEXEC) != 0 ? count + 1 : -1000;
    }
  }
  (void)closedir(directory);
  return count < 0 ? -1 : count;
}

TEST_F(LinuxSocketTest, NoDescriptorIsInheritedByThePrograms) {
  ASSERT_EQ(0, ListenAndConnect());
  LoopbackPeer other;
  ReservedPort otherPort;
  other.ListenOn(otherPort.Number());
  CLinuxSocket connecting;
  ASSERT_EQ(0, connecting.Connect(otherPort.Number()));
  // Of `port`, `peer`, `otherPort`, `other` one each; of `socket` two, of `connecting` one.
  EXPECT_EQ(7, SocketsThatCloseOnExec());
}

TEST_F(LinuxSocketTest, WhatFailsLeavesNoDescriptor) {
  EXPECT_NE(0, ListenAndConnect("127.0.0.2"));
  port.KeepForItself();
  EXPECT_EQ(EADDRINUSE, socket.Listen(port.Number()));
  EXPECT_EQ(ECONNREFUSED, socket.Connect(port.Number()));
  EXPECT_EQ(2, SocketsThatCloseOnExec()) << "of `port` and `peer`";
}

TEST_F(LinuxSocketTest, ARefusedAddressReuseIsNotLookedAt) {
  refusesReuse = true;
  EXPECT_EQ(0, ListenAndConnect());
}

CLinuxSocket* closedBySignal = nullptr;

void CloseIt(int) {
  const int kept = errno;
  (void)closedBySignal->Close();
  errno = kept;
}

class InterruptedListenTest : public LinuxSocketTest {
 protected:
  void SetUp() override {
    closedBySignal = &socket;
    struct sigaction action {};
    action.sa_handler = CloseIt;
    ASSERT_EQ(0, sigaction(SIGTERM, &action, nullptr));
  }
  void TearDown() override { (void)signal(SIGTERM, SIG_DFL); }
};

TEST_F(InterruptedListenTest, ACloseFromASignalHandlerOnTheWaitingThreadEndsListen) {
  const pthread_t waiting = pthread_self();
  auto interrupter = std::async(std::launch::async, [&] {
    std::string line = output.NextLine();
    // It has a handler here.
    EXPECT_EQ(0, pthread_kill(waiting, SIGTERM));  // NOLINT(bugprone-bad-signal-to-kill-thread)
    return line;
  });
  EXPECT_NE(0, socket.Listen(port.Number()));
  EXPECT_EQ(ListenLine(port), interrupter.get());
  EXPECT_EQ("", output.Rest()) << "nobody was accepted";
  EXPECT_TRUE(PortIsFree());
}

TEST_F(InterruptedListenTest, ASignalHeldBackBeforeListenEndsItsWait) {
  const CStopSignalsHeld held;
  // It has a handler here.
  ASSERT_EQ(0,
            pthread_kill(pthread_self(), SIGTERM));  // NOLINT(bugprone-bad-signal-to-kill-thread)
  EXPECT_NE(0, socket.Listen(port.Number()));
  EXPECT_TRUE(PortIsFree());
}

class UnderwayRecvTest : public LinuxSocketTest {
 protected:
  void SetUp() override {
    peer.ListenOn(port.Number());
    number = dup(STDIN_FILENO);
    (void)close(number);
    ASSERT_EQ(0, socket.Connect(port.Number()));
    peer.Accept();
    receiving = false;
    waiting = std::async(std::launch::async, [this] { return ReceiveHex(1); });
    ASSERT_TRUE(Eventually([] { return receiving.load(); }));
    ASSERT_EQ(0, socket.Close());
  }

  void ExpectItsEnd() {
    peer.Sends("41");
    EXPECT_EQ("41", waiting.get()) << "the kernel keeps the connection for a call that waits";
    EXPECT_TRUE(peer.SeesEnd());
    EXPECT_EQ(-1, fcntl(number, F_GETFD));
  }

  int number = -1;  // the connection's
  std::future<std::string> waiting;
};

// Or what the thread does to its connection, it would do to another file.
TEST_F(UnderwayRecvTest, KeepsItsNumber) {
  const int next = dup(STDIN_FILENO);
  EXPECT_NE(number, next);
  (void)close(next);
  ExpectItsEnd();
}

TEST_F(UnderwayRecvTest, KeepsNobodyFromConnectingAgain) {
  LoopbackPeer other;
  ReservedPort otherPort;
  other.ListenOn(otherPort.Number());
  ASSERT_EQ(0, socket.Connect(otherPort.Number()));
  other.Accept();
  EXPECT_EQ(1, SendHex("42"));
  EXPECT_EQ("42", other.Receives(1));
  ExpectItsEnd();
}

TEST_F(LinuxSocketTest, SendToAPeerThatHasClosedReturnsMinus1) {
  (void)signal(SIGPIPE, SIG_IGN);  // as the service has it
  ASSERT_EQ(0, ListenAndConnect());
  peer.Sends("41");
  peer.Close();  // with a byte unread in between: the other side sees the reset
  EXPECT_EQ("41", ReceiveHex(1));
  EXPECT_EQ("-1", ReceiveHex(1));
  int result = 0;
  for (int i = 0; i < 1000 && result != -1; ++i) {  // the first sends may still be taken
    result = SendHex("42");
  }
  EXPECT_EQ(-1, result);
}

}  // namespace
