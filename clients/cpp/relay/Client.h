// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "relay/ByteQueue.h"
#include "relay/Error.h"
#include "relay/Packet.h"

namespace relay {

constexpr uint16_t kDefaultPort = 60004;

using Clock = std::chrono::steady_clock;
using Millis = std::chrono::milliseconds;

struct Reply {
  uint8_t command = 0;  // kCommandOpen or kCommandClose
  Port port;
  uint16_t status = 0;
};

// What follows a link that ended, or that could not be made.
struct Retry {
  Error reason;
  unsigned triesInVain = 0;  // links in a row on which nothing came; 0: the last one was a good one
  Millis pause{0};           // until the next try
};

// What a client tells its caller, from within Start, Process, what runs and what sends. All may be
// empty. They may call the client, Stop included, but must not destroy it.
struct Events {
  // The link stands. Commands that depend on nothing else are sent from here.
  std::function<void()> connected;

  // The link ended or could not be made. The client tries again unless IsOver().
  std::function<void(const Error&)> disconnected;

  // Behind it, and only when the client tries again, for which nothing needs to be done.
  std::function<void(const Retry&)> retrying;

  // An answer that no handler of its own takes: to a port that is kept open, or to raw bytes.
  std::function<void(const Reply&)> reply;

  std::function<void(const Port&, std::string_view data)> received;

  // Every whole packet as it goes out or has come in, before anything else is told about it.
  std::function<void(Direction, std::string_view bytes)> packet;

  // A packet with a right length and a wrong inside. The link stays.
  std::function<void(std::string_view bytes, const std::string& problem)> malformed;
};

struct ClientOptions {
  uint16_t port = kDefaultPort;

  // Tries again whenever the link ends, until Stop.
  bool reconnect = false;

  // Without `reconnect`: how long from Start on a service that does not listen yet, or that still
  // resets new links because the peer before has just left, is tried again.
  Millis patience{1000};

  // Between two tries. With `reconnect` it grows to twice as much with each further link in a row
  // on which nothing comes, until it is `longestPause`.
  Millis retryPause{100};
  Millis longestPause{1000};

  Millis reopenPause{500};  // between two opens of a kept port that the service refused

  // A command that is not answered for so long ends the link with kNoAnswer. 0: no limit, as a
  // line that takes no bytes holds up all commands behind its data.
  Millis replyTimeout{0};
};

// The relay service's end of the link: connects, sends commands, and tells what comes back.
//
// Threads: none inside, and one at a time may use it. Nothing blocks but RunUntil, RunFor and
// RunTo. A caller with a poll loop of its own waits for `PollEvents()` on `Descriptor()`, at most
// `TimeUntilDue()`, and then calls Process.
class Client {
 public:
  using ReplyHandler = std::function<void(const Reply&)>;

  explicit Client(ClientOptions clientOptions, Events clientEvents = {});
  ~Client();
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  void SetEvents(Events clientEvents) { events = std::move(clientEvents); }

  // Begins to connect. Failures come as `disconnected`.
  void Start();

  // Leaves: the service closes all ports. No event comes of it.
  void Stop();

  bool IsConnected() const { return state == State::kConnected; }

  // Not started, stopped, or ended without a further try: then Failure() tells why.
  bool IsOver() const { return state == State::kOver; }
  const std::optional<Error>& Failure() const { return failure; }

  // For poll. The descriptor changes with each link; -1: none at the moment.
  int Descriptor() const { return PollEvents() == 0 ? -1 : socket; }
  short PollEvents() const;

  // When Process wants to be called at the latest. Nothing: only when the descriptor is ready.
  std::optional<Millis> TimeUntilDue() const;

  // Does what is due: connects, sends, receives, tells. Never blocks. Throws only what the caller's
  // own event functions throw.
  void Process();

  // A poll loop of its own: processes until `done`. Throws Failure() when the client is over
  // before, and kNoAnswer when `limit` passes.
  void RunUntil(const std::function<bool()>& done, std::optional<Millis> limit = {});

  // The same for so long, or to this point in time, when that is nothing wrong. True as soon as
  // `done` holds; false behind the time, when all that had come by then has been told. A time that
  // is over does what is due, and does not wait. Throws Failure() when the client is over before.
  bool RunFor(Millis time, const std::function<bool()>& done = {});
  bool RunTo(Clock::time_point deadline, const std::function<bool()>& done = {});

  // Opens the port on this link and on each link to come. A refused open is told as `reply`, and
  // tried again after `reopenPause` when the client reconnects.
  void KeepOpen(const Port& port);

  // Keeps it open no more, and closes it. False when there is nothing to close: no link, or the
  // service has refused to open it. Else `handler` gets the answer.
  bool LetGo(const Port& port, ReplyHandler handler = {});

  bool IsOpen(const Port& port) const;

  // Each sends one command, and is dropped without a link. `handler` gets the answer; it is
  // dropped when the link ends before.
  void Open(const Port& port, ReplyHandler handler = {});
  void Close(const Port& port, ReplyHandler handler = {});

  // An open of a port that is open already, for its answer only: what was sent before has then been
  // processed. kStatusUnavailable is the answer to expect.
  void Fence(const Port& port, ReplyHandler handler);

  // Data of any length, in as many commands as it takes; each has one block, or blocks of at most
  // `blockSize` bytes. Has no answer; see Writer for data that matter.
  void Data(const Port& port, std::string_view data, size_t blockSize = 0);

  // Takes no more from the link until Resume: for a caller that has no room left for what comes. It
  // begins once all commands are answered: the service then waits in the middle of a packet, with
  // all its ports, and an answer would get into that packet. So Open and Close are not to be
  // called while MayAsk() says no; Data is, and fences wait.
  void Pause();
  void Resume() { isPaused = false; }
  bool IsPaused() const { return isPaused; }

  // False from Pause until Resume, and from there until all that was held up has come.
  bool MayAsk() const { return !isPaused && !isBehind; }

  // Any bytes. Answers come as `reply`.
  void Send(std::string_view bytes);

  // Bytes that the system has not taken yet.
  size_t Unsent() const { return outgoing.Size(); }

 private:
  enum class State { kOver, kWaiting, kConnecting, kConnected };
  struct Question {
    uint8_t command;
    ReplyHandler handler;
    Clock::time_point since;
  };
  struct HeldFence {
    Port port;
    ReplyHandler handler;
  };
  struct KeptPort {
    bool isOpen = false;
    bool mayBeOpen = false;  // from its open on, unless the service refuses it
    std::optional<Clock::time_point> retryAt;
  };

  std::string Address() const;
  void Wait(Clock::time_point deadline) const;
  void Connect();
  void FinishConnecting();
  void FailToConnect(int error);
  void BeConnected();
  void Disconnect(const Error& reason, bool isFirm);
  Millis NextPause() const;
  void CloseSocket();
  void Flush();
  bool MayReceive() const;
  void Receive();
  void CatchUp();
  void TakePackets();
  void TakePacket(std::string_view bytes);
  void TakeReply(const Reply& reply);
  void Ask(uint8_t command, const std::string& packet, ReplyHandler handler);
  void OpenKept(const Port& port);
  void DoWhatIsDue();
  std::optional<Clock::time_point> NextDue() const;

  const ClientOptions options;
  Events events;
  State state = State::kOver;
  int socket = -1;
  uint64_t linkNumber = 0;
  bool somethingCame = false;   // on this link
  unsigned triesInVain = 0;     // links in a row before it on which nothing came
  Clock::time_point retryAt{};  // kWaiting
  Clock::time_point patienceEnd{};
  Clock::time_point connectingSince{};
  std::optional<Error> failure;
  ByteQueue outgoing;
  PacketCutter cutter;
  bool isPaused = false;
  bool isBehind = false;              // the service may be in the middle of a packet
  bool isBroken = false;              // the link takes nothing any more
  std::vector<HeldFence> heldFences;  // until MayAsk
  std::deque<Question> questions;     // commands without an answer yet, in their order
  std::map<Port, KeptPort> kept;
};

}  // namespace relay
