// SPDX-License-Identifier: MIT
#include <poll.h>

#include <memory>
#include <utility>
#include <vector>

#include "CommandLine.h"
#include "Duration.h"
#include "ExitStatus.h"
#include "link/LinkNotices.h"
#include "link/Loop.h"
#include "link/PeerSocket.h"
#include "link/PortToOpen.h"
#include "link/RecordingFile.h"
#include "link/Silence.h"
#include "relay/Text.h"
#include "show/Output.h"

namespace {

using relay::Clock;
using relay::Direction;

struct Options {
  std::string file = "-";
  std::vector<std::string> ports;
  unsigned listen = 0;
  double duration = 0;
};

void Report(const Options& options, uint64_t packets) {
  const std::string file = relay::Escape(options.file);
  if (packets == 0) {
    PrintNotice("nothing recorded" + (file != "-" ? "; " + file + " is as it was" : ""));
  } else {
    PrintNotice(std::to_string(packets) + " packets recorded in " + file);
  }
}

// relayctl is the relay service: opens ports and records what comes.
int RecordPorts(const CommonOptions& common, const Options& options) {
  const std::vector<relay::Port> ports = PortsToOpen(options.ports);
  RecordingFile recording(options.file);
  relay::Client client(common.ForClient(true));
  LinkNotices notices(common.RelayPort(),
                      [](const LinkNotices::Notice& notice) { PrintNotice(notice.text); });
  relay::Events events;
  events.connected = [&] { recording.Link(true); };
  events.packet = [&](Direction direction, std::string_view bytes) {
    recording.Packet(direction, bytes);
    // The kernel takes links that the service never does: one counts once something has come.
    if (direction == Direction::kFromService) {
      recording.Commit();
    }
  };
  events.disconnected = [&](const relay::Error&) { recording.Link(false); };
  notices.Attach(events);
  client.SetEvents(events);
  for (const relay::Port& port : ports) {
    client.KeepOpen(port);
  }
  client.Start();
  Loop loop;
  loop.Serve(client);
  loop.When([&] { return notices.Due(); }, [&] { notices.Remind(); });
  const int signal = loop.RunFor(options.duration);
  Report(options, recording.Packets());
  if (signal == 0) {
    notices.MustHaveLinked();
  }
  return kExitDone;
}

// Whether the service answers it.
bool IsQuestion(std::string_view packet) {
  const uint8_t command = relay::ParsePacket(packet, Direction::kToService).packet.command;
  return command == kCommandOpen || command == kCommandClose;
}

// relayctl stands between a relay service and the service, and records what passes.
class Tap {
 public:
  Tap(const CommonOptions& commonOptions, const Options& commandOptions)
      : common(commonOptions),
        options(commandOptions),
        socket(static_cast<uint16_t>(options.listen)),
        recording(options.file),
        client(common.ForPatientClient()) {}  // a limit is the relay service's own business

  int Run() {
    relay::Events events;
    events.connected = [this] {
      if (!wasAsked) {
        silentAt.reset();
      }
      client.Send(firstFlight);  // again, if the link before was reset before it counted
    };
    events.packet = [this](Direction direction, std::string_view bytes) {
      if (direction == Direction::kFromService && !hasLeft) {
        firstFlight.clear();
        somethingCame = true;
        silentAt.reset();
        Record(direction, bytes);
        socket.Send(bytes);
        Regulate();
      }
    };
    events.disconnected = [this](const relay::Error& error) {
      if (client.IsOver()) {
        PrintNotice(error.what());
        silentAt.reset();
        hasEnded = true;
        loop.ServeNoClient();
      } else {
        silentAt = Clock::now() + kSilence;
      }
    };
    client.SetEvents(events);
    loop.Watch(
        socket.Listening(),
        [this]() -> short { return socket.Peer() == -1 && !hasLeft ? POLLIN : 0; },
        [this](short) { Accept(); });
    PrintNotice("waiting for a relay service on 127.0.0.1:" + std::to_string(options.listen));
    loop.When([this] { return silentAt; }, [this] { TellOfSilence(); });
    loop.When([this] { return IsPassedOn() ? std::optional(Clock::now()) : std::nullopt; },
              [this] { Leave(); });
    (void)loop.RunFor(options.duration);
    Report(options, recording.Packets());
    return kExitDone;
  }

 private:
  static constexpr size_t kMostKept = 1U << 20;

  void Accept() {
    if (!socket.Accept()) {
      return;
    }
    PrintNotice("a relay service is there");
    recording.Link(true);
    cutter.Clear();
    firstFlight.clear();
    somethingCame = false;
    wasAsked = false;
    silentAt = Clock::now() + kSilence;
    client.Start();
    if (client.IsOver()) {
      return;  // told already
    }
    loop.Serve(client);
    const int peer = socket.Peer();
    loop.Watch(
        peer, [this]() -> short { return PeerEvents(); }, [this](short ready) { OnPeer(ready); });
  }

  short PeerEvents() const {
    return static_cast<short>(
        (!hasEnded && client.IsConnected() && client.Unsent() < kMostKept ? POLLIN : 0) |
        (socket.Unsent() > 0 ? POLLOUT : 0));
  }

  // One side waits for the other, as if nobody stood between.
  void Regulate() {
    if (socket.Unsent() < kMostKept) {
      client.Resume();
    } else {
      client.Pause();
    }
  }

  void OnPeer(short ready) {
    if ((ready & POLLOUT) != 0) {
      socket.Flush();
      Regulate();
    }
    if ((ready & ~POLLOUT) == 0) {
      return;
    }
    const int peer = socket.Peer();
    std::string bytes;
    const bool isThere = socket.Receive(bytes);
    Note(bytes);
    client.Send(bytes);
    if (!somethingCame && firstFlight.size() < kMostKept) {
      firstFlight += bytes;
    }
    if (!isThere) {
      loop.Forget(peer);
      silentAt.reset();
      hasLeft = true;
      Regulate();
    }
  }

  // Whether one side has ended, and the other one has all that it sent before, as it would without
  // us.
  bool IsPassedOn() const {
    return (hasLeft && (!client.IsConnected() || client.Unsent() == 0)) ||
           (hasEnded && socket.Unsent() == 0);
  }

  void Note(std::string_view bytes) {
    cutter.Add(bytes);
    try {
      while (const auto packet = cutter.Next()) {
        Record(Direction::kToService, *packet);
        if (!wasAsked && IsQuestion(*packet)) {
          wasAsked = true;
          silentAt = Clock::now() + kSilence;
        }
      }
    } catch (const relay::Error&) {
      // No packet; where the next one begins nobody knows.
      Record(Direction::kToService, cutter.Rest());
      cutter.Clear();
    }
  }

  void Record(Direction direction, std::string_view bytes) {
    recording.Packet(direction, bytes);
    recording.Commit();
  }

  void TellOfSilence() {
    silentAt.reset();
    PrintNotice(SilenceText(common.RelayPort()));
  }

  void Leave() {
    silentAt.reset();
    if (std::exchange(hasLeft, false)) {
      PrintNotice("the relay service left");
      client.Stop();
    }
    hasEnded = false;
    if (socket.Peer() != -1) {
      loop.Forget(socket.Peer());
    }
    socket.Drop();
    Regulate();
    loop.ServeNoClient();
    recording.Link(false);
  }

  const CommonOptions& common;
  const Options& options;
  PeerSocket socket;
  RecordingFile recording;
  relay::PacketCutter cutter;
  std::string firstFlight;  // what the service may never have seen
  bool somethingCame = false;
  bool wasAsked = false;
  bool hasLeft = false;                       // the relay service
  bool hasEnded = false;                      // the service's link
  std::optional<Clock::time_point> silentAt;  // when it is, unless something comes before
  relay::Client client;
  Loop loop;
};

int Record(const CommonOptions& common, const Options& options) {
  common.RefuseJson("record");
  if ((options.listen != 0) == !options.ports.empty()) {
    throw relay::Error(relay::ErrorKind::kUsage, "record: give either PORT or --listen");
  }
  return options.listen != 0 ? Tap(common, options).Run() : RecordPorts(common, options);
}

void Add(SubCommand& command, const CommonOptions& common) {
  const auto options = std::make_shared<Options>();
  command.Arguments("PORT", options->ports, "Open these ports, and record what comes", false);
  command.Option("-o,--output", options->file, "FILE", "The recording; - is standard output");
  command.Option("--listen", options->listen, "N",
                 "Stand between: take a relay service on this TCP port, and pass everything on", 1);
  command.Option("--for", options->duration, "SECONDS", "End after so long; 0: never");
  command.Runs([&common, options] { return Record(common, *options); });
}

const Registration kRegistration("record", "Write what goes over the link to a file", Add);

}  // namespace
