// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <ctime>

#include "simulation/conformance/Row.h"
#include "simulation/conformance/Script.h"

namespace conformance {
namespace {

// More than any line holds.
const std::string& Much() {
  static const std::string text(300'000, 'x');
  return text;
}

int64_t NowMilliseconds() {
  timespec now{};
  (void)clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

void ReadsALine(Bench& bench) {
  const auto device = bench.PlugsIn();
  const int number = OpenRaw(*device);
  const int64_t began = NowMilliseconds();
  bench.Saw(ReadOf(number, 10));
  bench.Saw(NowMilliseconds() - began >= 90 ? "after a tenth of a second" : "too early");
  device->Sends("abcde");
  AwaitEvents(number, POLLIN);
  bench.Saw({ReadOf(number, 2), ReadOf(number, 10)});
}

void IsReadFor(Bench& bench) {
  const auto device = bench.PlugsIn();
  const int number = OpenRaw(*device);
  Worker worker(bench, [&] {
    std::string text;
    do {
      text = ReadOf(number, 10);
    } while (text == "read 0");
    bench.Saw(text);
  });
  worker.AwaitIn("read");
  device->Sends("a");
  bench.Saw(worker.Ends());
}

void TalksBothWays(Bench& bench) {
  const auto device = bench.PlugsIn();
  const int number = OpenRaw(*device);
  bench.Saw({PollOf(number), WriteOf(number, "abc")});
  bench.Saw("the device takes '" + TakesAll(bench, *device, 3) + "'");
  device->Sends("d");
  AwaitEvents(number, POLLIN);
  bench.Saw(PollOf(number));
}

void KeepsSettings(Bench& bench) {
  const auto device = bench.PlugsIn();
  const int number = OpenRaw(*device);
  termios attributes{};
  bench.Saw(Told("tcgetattr", tcgetattr(number, &attributes)));
  (void)cfsetspeed(&attributes, B9600);
  attributes.c_cflag |= CSTOPB;
  bench.Saw(Told("tcsetattr", tcsetattr(number, TCSANOW, &attributes)));
  termios found{};
  (void)tcgetattr(open(device->Node().c_str(), O_RDWR), &found);
  bench.Saw(cfgetospeed(&found) == B9600 && (found.c_cflag & CSTOPB) != 0 && found.c_cc[VTIME] == 1
                ? "another description has them"
                : "another description does not have them");
  bench.Saw(Told("isatty", isatty(number)));
}

// What VMIN and VTIME ask for.
void ReadsInAnotherMode(Bench& bench) {
  const auto device = bench.PlugsIn();
  const int number = OpenRaw(*device);
  termios attributes{};
  (void)tcgetattr(number, &attributes);
  attributes.c_cc[VTIME] = 0;
  (void)tcsetattr(number, TCSANOW, &attributes);
  bench.Saw("VMIN 0, VTIME 0: " + ReadOf(number, 10));
  attributes.c_cc[VMIN] = 1;
  (void)tcsetattr(number, TCSANOW, &attributes);
  Worker worker(bench, [&] { bench.Saw("VMIN 1: " + ReadOf(number, 10)); });
  worker.AwaitIn("read");
  device->Sends("a");
  (void)worker.Ends();
}

void FlushesInput(Bench& bench) {
  const auto device = bench.PlugsIn();
  const int number = OpenRaw(*device);
  device->Sends("abc");
  AwaitEvents(number, POLLIN);
  bench.Saw(Told("tcflush", tcflush(number, TCIFLUSH)));
  bench.Saw({PollOf(number), ReadOf(number, 10)});
  device->Sends("d");
  AwaitEvents(number, POLLIN);
  bench.Saw(ReadOf(number, 10));
}

void HangsUp(Bench& bench) {
  const auto device = bench.PlugsIn();
  const int number = OpenRaw(*device);
  device->Sends("abc");
  AwaitEvents(number, POLLIN);
  device->IsUnplugged();
  bench.Saw({PollOf(number), ReadOf(number, 10), ReadOf(number, 10)});
  pollfd entry = {number, 0, 0};
  bench.Saw("unasked: " + Told("poll", poll(&entry, 1, -1)));
  termios attributes{};
  bench.Saw(Told("tcgetattr", tcgetattr(number, &attributes)));
  bench.Saw(Told("tcsetattr", tcsetattr(number, TCSANOW, &attributes)));
  bench.Saw(Told("tcflush", tcflush(number, TCIOFLUSH)));
  const int dtr = TIOCM_DTR;
  bench.Saw(Told("TIOCMBIC", ioctl(number, TIOCMBIC, &dtr)));
  bench.Saw({WriteOf(number, "a"), ReadOf(number, 10)});
  bench.Saw(Told("open", open(device->Node().c_str(), O_RDWR)));
  bench.Saw(Told("close", close(number)));
}

void HangsUpUnderARead(Bench& bench) {
  const auto device = bench.PlugsIn();
  const int number = OpenRaw(*device);
  termios attributes{};
  (void)tcgetattr(number, &attributes);
  attributes.c_cc[VMIN] = 1;
  (void)tcsetattr(number, TCSANOW, &attributes);
  Worker worker(bench, [&] {
    char byte = 0;
    bench.Saw(read(number, &byte, 1) < 1 ? "read nothing" : "read a byte");
    bench.Saw(ReadOf(number, 1));
  });
  worker.AwaitIn("read");
  device->IsUnplugged();
  bench.Saw(worker.Ends());
}

void HangsUpUnderAPoll(Bench& bench) {
  const auto device = bench.PlugsIn();
  const int number = OpenRaw(*device);
  Worker worker(bench, [&] {
    AwaitEvents(number, 0);
    bench.Saw(PollOf(number));
  });
  worker.AwaitIn("poll");
  device->IsUnplugged();
  bench.Saw(worker.Ends());
}

void FillsALine(Bench& bench) {
  const auto device = bench.PlugsIn();
  const int number = OpenRaw(*device);
  Worker worker(bench,
                [&] { bench.Saw(Told("write", write(number, Much().data(), Much().size()))); });
  worker.AwaitIn("write");
  Until(bench, [&] { return PollOf(number) == "poll 0"; });
  bench.Saw("at last poll 0");
  bench.Saw("the device takes " + std::to_string(TakesAll(bench, *device, Much().size()).size()));
  bench.Saw({worker.Ends(), PollOf(number)});
}

std::string Part(long written) {
  return written > 0 && written < static_cast<long>(Much().size()) ? "write a part"
                                                                   : Told("write", written);
}

// What a pseudo-terminal has passed on makes room for some more.
void FillsALineWithoutWaiting(Bench& bench) {
  const auto device = bench.PlugsIn();
  (void)OpenRaw(*device);
  const int number = open(device->Node().c_str(), O_RDWR | O_NONBLOCK);
  bench.Saw({ReadOf(number, 10), Part(write(number, Much().data(), Much().size()))});
  Until(bench,
        [&] { return WriteOf(number, Much()) == "write EAGAIN" && PollOf(number) == "poll 0"; });
  bench.Saw("at last write EAGAIN, poll 0");
}

void IsInterruptedWriting(Bench& bench) {
  Handle(SIGUSR1, Ignored);
  const auto device = bench.PlugsIn();
  const int number = OpenRaw(*device);
  std::string first;
  std::string last;
  while (last != "write EINTR") {
    Worker worker(bench, [&] { last = Part(write(number, Much().data(), Much().size())); });
    worker.AwaitIn("write");
    (void)pthread_kill(worker.Handle(), SIGUSR1);
    (void)worker.Ends();
    first = first.empty() ? last : first;
  }
  bench.Saw({first, "at last " + last});
}

void HangsUpUnderAWrite(Bench& bench) {
  const auto device = bench.PlugsIn();
  const int number = OpenRaw(*device);
  Worker worker(bench, [&] {
    bench.Saw({Part(write(number, Much().data(), Much().size())), WriteOf(number, "a")});
  });
  worker.AwaitIn("write");
  device->IsUnplugged();
  bench.Saw(worker.Ends());
}

// The last close of a line that stays drops nothing that another description still reads.
void IsOpenTwice(Bench& bench) {
  const auto device = bench.PlugsIn();
  const int one = OpenRaw(*device);
  const int other = open(device->Node().c_str(), O_RDWR);
  device->Sends("abcd");
  AwaitEvents(one, POLLIN);
  bench.Saw({ReadOf(one, 1), ReadOf(other, 1)});
  (void)close(one);
  bench.Saw({ReadOf(other, 10), WriteOf(other, "e")});
  bench.Saw("the device takes '" + TakesAll(bench, *device, 1) + "'");
}

void IsClosedUnderARead(Bench& bench) {
  const auto device = bench.PlugsIn();
  const int number = OpenRaw(*device);
  termios attributes{};
  (void)tcgetattr(number, &attributes);
  attributes.c_cc[VMIN] = 1;
  (void)tcsetattr(number, TCSANOW, &attributes);
  Worker worker(bench, [&] { bench.Saw(ReadOf(number, 10)); });
  worker.AwaitIn("read");
  bench.Saw(Told("close", close(number)));
  device->Sends("a");
  bench.Saw(worker.Ends());
}

void IsClosedUnderAWrite(Bench& bench) {
  const auto device = bench.PlugsIn();
  const int number = OpenRaw(*device);
  std::string written;
  Worker worker(bench, [&] { written = WriteOf(number, Much()); });
  worker.AwaitIn("write");
  bench.Saw(Told("close", close(number)));
  bench.Saw("the device takes " + std::to_string(TakesAll(bench, *device, Much().size()).size()));
  bench.Saw({worker.Ends(), written});
}

void IsClosedUnderAPoll(Bench& bench) {
  const auto device = bench.PlugsIn();
  const int number = OpenRaw(*device);
  pollfd entry = {number, POLLIN, 0};
  Worker worker(bench, [&] { (void)poll(&entry, 1, -1); });
  worker.AwaitIn("poll");
  bench.Saw(Told("close", close(number)));
  worker.AwaitIn("poll");
  device->Sends("a");
  bench.Saw({worker.Ends(), entry.revents == POLLNVAL ? "POLLNVAL" : "another event"});
}

}  // namespace

std::vector<Row> TerminalRows() {
  return {
      {"`read` from a line", ReadsALine},
      {"a byte comes under a `read` that waits", IsReadFor},
      {"a line, both ways", TalksBothWays},
      {"a line's settings", KeepsSettings},
      {"`read` with another VMIN and VTIME", ReadsInAnotherMode},
      {"`tcflush` drops what was not read", FlushesInput},
      {"hang-up", HangsUp},
      {"hang-up under a `read` that waits", HangsUpUnderARead},
      {"hang-up under a `poll` that waits", HangsUpUnderAPoll},
      {"hang-up under a `write` that waits", HangsUpUnderAWrite},
      {"`write` to a line that is full", FillsALine},
      {"a line open with O_NONBLOCK", FillsALineWithoutWaiting},
      {"`write` to a full line, interrupted behind a part, and before any", IsInterruptedWriting},
      {"a line open twice", IsOpenTwice},
      {"`close` does not wake a `read` that waits", IsClosedUnderARead},
      {"`close` does not wake a `write` that waits", IsClosedUnderAWrite},
      {"`close` does not wake a `poll` that waits, and a byte does", IsClosedUnderAPoll}};
}

}  // namespace conformance
