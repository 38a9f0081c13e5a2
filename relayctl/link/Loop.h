// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <vector>

#include "relay/Client.h"

// The poll loop of a command: its links, other descriptors, points in time, and the signals that
// end a command (SIGINT, SIGTERM, SIGHUP), which are blocked as long as the loop lives and never
// interrupt anything.
class Loop {
 public:
  using Due = std::function<std::optional<relay::Clock::time_point>()>;

  Loop();
  ~Loop();
  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;

  // The clients outlive each Run.
  void Serve(relay::Client& linkClient) { clients.push_back(&linkClient); }
  void ServeNoClient() { clients.clear(); }

  // Calls `action` with what poll gave whenever `descriptor` has one of the events that `wanted`
  // gives. It is asked before each wait; 0: the descriptor is left alone, hang-ups included.
  // Replaces what was said of the descriptor before.
  void Watch(int descriptor, std::function<short()> wanted, std::function<void(short)> action);
  void Forget(int descriptor) { watched.erase(descriptor); }

  // Calls `action` once the time that `due` gives has come. `due` is asked before each wait.
  void When(Due due, std::function<void()> action);

  // Until `done`, or until a signal asks for the end, whose number it gives; else 0. Throws a
  // client's failure when that is over.
  int Run(const std::function<bool()>& done);

  // The same, and no longer than `seconds`; 0: as long as it takes.
  int RunFor(
      double seconds, const std::function<bool()>& done = [] { return false; });

  // Any other signal as an event: SIGWINCH. It is blocked from here on.
  void OnSignal(int signal, std::function<void()> action);

 private:
  struct Watched {
    std::function<short()> wanted;
    std::function<void(short)> action;
  };
  struct Timed {
    Due due;
    std::function<void()> action;
  };

  void MustBeLinked() const;
  int TimeToWait() const;
  void Wait();
  void TakeSignals();
  void RunTimed();

  std::vector<relay::Client*> clients;
  std::map<int, Watched> watched;
  std::vector<Timed> timed;
  std::map<int, std::function<void()>> signalActions;
  int signals = -1;
  int ended = 0;
};
