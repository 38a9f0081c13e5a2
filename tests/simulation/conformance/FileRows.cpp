// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "simulation/conformance/Row.h"
#include "simulation/conformance/Script.h"

namespace conformance {
namespace {

constexpr const char* kFile = "/tmp/deviceinfo.txt";

void OpensNothing(Bench& bench) {
  bench.Saw(Told("open", open("/tmp/nothing", O_RDWR)));
  struct stat status {};
  bench.Saw(Told("stat", stat("/tmp/nothing", &status)));
  bench.Saw(Told("unlink", unlink("/tmp/nothing")));
  char target[16];
  bench.Saw(Told("readlink", readlink("/tmp/nothing", target, sizeof target)));
  bench.Saw(std::fopen("/tmp/nothing", "re") == nullptr ? Told("fopen", -1) : "fopen a stream");
}

void TakesTheLowestNumber(Bench& bench) {
  bench.Saw(Told("open", open("/dev/null", O_RDWR)));
  bench.Saw(Told("open", open("/dev/null", O_RDWR)));
  bench.Saw(Told("close", close(3)));
  bench.Saw(Told("open", open("/dev/null", O_RDWR)));
  bench.Saw(Told("close", close(0)));
  bench.Saw(Told("open", open("/dev/null", O_RDWR)));
}

void MovesNumbers(Bench& bench) {
  bench.Saw(Told("fcntl", fcntl(1, F_DUPFD_CLOEXEC, 10)));
  bench.Saw(Told("fcntl", fcntl(1, F_DUPFD_CLOEXEC, 10)));
  bench.Saw(Told("fcntl of a bad one", fcntl(kNotOpen, F_DUPFD_CLOEXEC, 10)));
  bench.Saw(Told("F_SETFD", fcntl(10, F_SETFD, FD_CLOEXEC)));
  bench.Saw(Told("F_SETFD of -1", fcntl(-1, F_SETFD, FD_CLOEXEC)));
  Drop(write(10, "abc", 3));
  bench.Saw("number 1 takes '" + bench.OutputTakes(3) + "'");
}

void ReplacesANumber(Bench& bench) {
  bench.Puts(kFile, "text");
  const int number = open(kFile, O_RDONLY);
  bench.Saw(Told("dup3", dup3(number, 0, O_CLOEXEC)));
  bench.Saw({ReadOf(0, 2), ReadOf(number, 9)});
  bench.Saw(Told("dup3 to itself", dup3(number, number, O_CLOEXEC)));
  bench.Saw(Told("dup3 of a bad one", dup3(kNotOpen, number, O_CLOEXEC)));
  bench.Saw(Told("dup3 to -1", dup3(number, -1, O_CLOEXEC)));
}

void UsesABadNumber(Bench& bench) {
  struct stat status {};
  termios attributes{};
  bench.Saw(Told("close", close(kNotOpen)));
  bench.Saw({ReadOf(kNotOpen, 1), WriteOf(kNotOpen, "a")});
  bench.Saw(PollOf(kNotOpen));
  bench.Saw(Told("fstat", fstat(kNotOpen, &status)));
  bench.Saw(Told("tcgetattr", tcgetattr(kNotOpen, &attributes)));
  bench.Saw(Told("tcsetattr", tcsetattr(kNotOpen, TCSANOW, &attributes)));
  bench.Saw(Told("tcflush", tcflush(kNotOpen, TCIFLUSH)));
  bench.Saw(Told("ioctl", ioctl(kNotOpen, TIOCMBIC, nullptr)));
  errno = 0;
  bench.Saw({Told("isatty", isatty(kNotOpen)), Told("with", -1)});
}

void AsksWhatIsNoTerminal(Bench& bench) {
  termios attributes{};
  bench.Saw(Told("tcgetattr", tcgetattr(1, &attributes)));
  bench.Saw(Told("tcsetattr", tcsetattr(1, TCSANOW, &attributes)));
  bench.Saw(Told("tcflush", tcflush(1, TCIFLUSH)));
  int bytes = 0;
  bench.Saw(Told("TIOCOUTQ", ioctl(1, TIOCOUTQ, &bytes)));
  bench.Saw({Told("isatty", isatty(1)), Told("with", -1)});
}

std::string KindOf(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFCHR:
      return "a character device";
    case S_IFIFO:
      return "a pipe";
    case S_IFREG:
      return "a file";
    case S_IFSOCK:
      return "a socket";
    default:
      return "something else";
  }
}

std::string KindOfNumber(int number) {
  struct stat status {};
  return fstat(number, &status) == 0 ? KindOf(status.st_mode) : Told("fstat", -1);
}

std::string KindOfPath(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? KindOf(status.st_mode) : Told("stat", -1);
}

void LooksAtKinds(Bench& bench) {
  const auto device = bench.PlugsIn();
  bench.Puts(kFile, "text");
  bench.Saw({"/dev/null: " + KindOfNumber(0), "number 1: " + KindOfNumber(1)});
  bench.Saw({"a line: " + KindOfNumber(OpenRaw(*device)), KindOfPath(device->Node())});
  bench.Saw("a listening socket: " + KindOfNumber(Listening()));
  bench.Saw({"a file: " + KindOfNumber(open(kFile, O_RDONLY)), KindOfPath(kFile)});
}

void ReadsAFileInPieces(Bench& bench) {
  bench.Puts(kFile, "some text");
  const int number = open(kFile, O_RDONLY);
  bench.Saw(ReadOf(number, 4));
  bench.Saw(ReadOf(number, 100));
  bench.Saw(ReadOf(number, 100));
  bench.Saw(WriteOf(number, "a"));
  bench.Saw(PollOf(number));
}

void AppendsToAFile(Bench& bench) {
  const int one = open(kFile, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  const int other = open(kFile, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  bench.Saw({WriteOf(one, "ab"), WriteOf(other, "cd"), WriteOf(one, "ef")});
  bench.Saw(ReadOf(one, 1));
  bench.Saw(ReadOf(open(kFile, O_RDONLY), 100));
}

bool LeadsToTheSame(const char* path, int number) {
  struct stat named {};
  struct stat held {};
  return stat(path, &named) == 0 && fstat(number, &held) == 0 && named.st_dev == held.st_dev &&
         named.st_ino == held.st_ino;
}

void RemovesAnOpenFile(Bench& bench) {
  bench.Puts(kFile, "old");
  const int number = open(kFile, O_RDWR | O_APPEND);
  bench.Saw(LeadsToTheSame(kFile, number) ? "the same" : "another");
  bench.Saw(Told("unlink", unlink(kFile)));
  bench.Saw(Told("open", open(kFile, O_RDONLY)));
  bench.Saw({WriteOf(number, " text"), ReadOf(number, 100)});
  struct stat status {};
  (void)fstat(number, &status);
  bench.Saw("of " + std::to_string(status.st_size) + " bytes");
  bench.Puts(kFile, "new");
  bench.Saw(LeadsToTheSame(kFile, number) ? "the same" : "another");
}

void ReadsAStream(Bench& bench) {
  bench.Puts(kFile, "a line\n");
  FILE* const stream = std::fopen(kFile, "re");
  bench.Saw(stream != nullptr ? "fopen a stream" : Told("fopen", -1));
  (void)unlink(kFile);
  char text[20] = {};
  bench.Saw(std::fgets(text, sizeof text, stream) != nullptr ? "reads its text" : "reads nothing");
  (void)std::fclose(stream);
}

void UsesTheNullDevice(Bench& bench) {
  const int number = open("/dev/null", O_RDWR);
  bench.Saw({ReadOf(number, 3), WriteOf(number, "abc"), PollOf(number)});
}

void AsksTheEnvironment(Bench& bench) {
  bench.SetsVariable("KXLOGGER_FILE", "/var/log/service");
  const char* const there = getenv("KXLOGGER_FILE");
  bench.Saw(there != nullptr ? there : "null");
  bench.Saw(getenv("NOTHING_OF_THE_KIND") != nullptr ? "set" : "null");
}

void RunsCommands(Bench& bench) {
  bench.Saw(Told("system", std::system("udevadm info --export-db > /tmp/deviceinfo.txt")));
  bench.Saw(KindOfPath(kFile));
  bench.Saw(Told("system", std::system("rm /tmp/deviceinfo.txt")));
  bench.Saw(KindOfPath(kFile));
  bench.Saw(Told("system", std::system("rm /tmp/deviceinfo.txt")));
}

volatile bool hasHandled = false;

void NoteIt(int /*signal*/) { hasHandled = true; }

void SignalsWhileACommandRuns(Bench& bench, int signal, const std::string& name) {
  Handle(signal, NoteIt);
  hasHandled = false;
  bench.HoldsDumps();
  Worker worker(bench, [&] {
    bench.Saw(Told("system", std::system("udevadm info --export-db > /tmp/deviceinfo.txt")));
  });
  worker.AwaitIn("system");
  bench.Signals(signal);
  bench.LetsDumpsEnd();
  (void)worker.Ends();
  bench.Saw(name + (hasHandled ? " is handled" : " is lost"));
}

void IgnoresKeysMeanwhile(Bench& bench) {
  SignalsWhileACommandRuns(bench, SIGINT, "SIGINT");
  SignalsWhileACommandRuns(bench, SIGTERM, "SIGTERM");
}

void AsksForTheSession(Bench& bench) {
  bench.Saw(getsid(0) == getpid() ? "leads its session" : "does not lead its session");
}

}  // namespace

std::vector<Row> FileRows() {
  return {{"a path that is not there", OpensNothing},
          {"numbers are the lowest that are free", TakesTheLowestNumber},
          {"`fcntl` moves and marks numbers", MovesNumbers},
          {"`dup3` replaces a number", ReplacesANumber},
          {"a number that is not open", UsesABadNumber},
          {"a pipe is no terminal", AsksWhatIsNoTerminal},
          {"`fstat` and `stat` tell the kind", LooksAtKinds},
          {"a file read in pieces, open for reading only", ReadsAFileInPieces},
          {"a file made and appended to, open twice", AppendsToAFile},
          {"`unlink` of an open file", RemovesAnOpenFile},
          {"a stream keeps a removed file's text", ReadsAStream},
          {"/dev/null", UsesTheNullDevice},
          {"`getenv`", AsksTheEnvironment},
          {"`system` with what the service runs", RunsCommands},
          {"a signal to the process while `system` runs a command", IgnoresKeysMeanwhile},
          {"`getsid`", AsksForTheSession}};
}

}  // namespace conformance
