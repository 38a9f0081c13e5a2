// SPDX-License-Identifier: MIT
// Counts, with the processor's own counters, the instructions that a command, notifications and an
// echo cost the service or the floor, in user space and in the kernel. It starts the program anew
// for each kind of message, and is its relay and the far end of its line, a pseudo-terminal in
// place of /dev/ttyS2: that wants root. When a kind takes longer than 20 s, it tells what it has
// been waiting for, and ends with status 1. usage: message-instructions PROGRAM [ARGUMENT...]
// prints a line for each kind: WAY-BYTES USER KERNEL
#include <fcntl.h>
#include <linux/perf_event.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "client/Checked.h"
#include "client/Line.h"
#include "client/Peer.h"

namespace {

constexpr uint16_t kTcpPort = 60004;
constexpr int kFirstMessages = 100;  // until caches are filled and buffers have grown
constexpr int kMessages = 500;
constexpr unsigned kDeadlineSeconds = 20;
constexpr useconds_t kLookMicroseconds = 1000;  // seldom: on an emulated board looking takes long

// The program goes before its peer: it is switched to once for each message, and not away from when
// it wakes the peer. Otherwise that is the scheduler's choice, which can change by any instruction.
constexpr int kPeerPriority = 1;
constexpr int kProgramPriority = 2;

// What is being waited for; written by main, read by the handler of its alarm.
const char* volatile awaited = "";

// Calls nothing but what a signal handler may.
extern "C" void TellWhatIsAwaited(int /*signal*/) {
  for (const char* part : {"message-instructions: waited too long for ", awaited, "\n"}) {
    (void)!write(STDERR_FILENO, part, strlen(part));
  }
  _exit(1);
}

void TakePriority(int priority) {
  const sched_param wanted = {priority};
  Checked(sched_setscheduler(0, SCHED_FIFO, &wanted), "sched_setscheduler");
}

// Instructions of a process and of all threads that it starts later.
class Counter {
 public:
  Counter(pid_t process, bool ofKernel) {
    perf_event_attr wanted{};
    wanted.type = PERF_TYPE_HARDWARE;
    wanted.size = sizeof wanted;
    wanted.config = PERF_COUNT_HW_INSTRUCTIONS;
    wanted.inherit = 1;
    wanted.exclude_user = ofKernel ? 1 : 0;
    wanted.exclude_kernel = ofKernel ? 0 : 1;
    wanted.exclude_hv = 1;
    const int anyProcessor = -1;
    const int noGroup = -1;
    descriptor = static_cast<int>(Checked(
        syscall(SYS_perf_event_open, &wanted, process, anyProcessor, noGroup, PERF_FLAG_FD_CLOEXEC),
        "perf_event_open"));
  }
  ~Counter() { (void)close(descriptor); }
  Counter(const Counter&) = delete;
  Counter& operator=(const Counter&) = delete;

  uint64_t Read() const {
    uint64_t count = 0;
    Checked(read(descriptor, &count, sizeof count), "read counter");
    return count;
  }

 private:
  int descriptor;
};

// A process that starts its program when it is told to, so that it can be counted from there on.
class Process {
 public:
  explicit Process(char** words) {
    std::array<int, 2> gate{};
    Checked(pipe2(gate.data(), O_CLOEXEC), "pipe");
    id = Checked(fork(), "fork");
    if (id == 0) {
      TakePriority(kProgramPriority);
      (void)close(gate[1]);
      Execute(gate[0], words);
    }
    (void)close(gate[0]);
    opener = gate[1];
  }
  ~Process() {
    (void)kill(id, SIGKILL);
    (void)waitpid(id, nullptr, 0);
    (void)close(opener);
  }
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  pid_t Id() const { return id; }
  bool HasEnded() const {
    siginfo_t end{};
    Checked(waitid(P_PID, static_cast<id_t>(id), &end, WEXITED | WNOHANG | WNOWAIT), "waitid");
    return end.si_pid != 0;
  }
  void Start() const { Checked(write(opener, "", 1), "write"); }

 private:
  [[noreturn]] static void Execute(int gate, char** words) {
    char opened = 0;
    const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && read(gate, &opened, 1) == 1 &&
        dup2(nowhere, STDOUT_FILENO) >= 0 && dup2(nowhere, STDERR_FILENO) >= 0) {
      (void)execv(words[0], words);
    }
    _exit(127);
  }

  pid_t id;
  int opener;
};

// Whether another socket listens at the port. Asked by binding to it and never by connecting: a try
// to connect before anybody listens may get that very port for its own end, and meet itself.
// Binding hinders nobody, as both sides allow the address to be reused.
bool IsListenedAt(uint16_t port) {
  const int probe = Checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
  const int on = 1;
  Checked(setsockopt(probe, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on), "SO_REUSEADDR");
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const bool isTaken = bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0;
  (void)close(probe);
  return isTaken;
}

void WaitUntilItListens(const Process& process) {
  awaited = "the program to listen";
  while (!IsListenedAt(kTcpPort)) {
    if (process.HasEnded()) {
      throw std::runtime_error("the program has ended before it listened");
    }
    (void)usleep(kLookMicroseconds);
  }
}

struct Kind {
  const char* way;
  size_t bytes;
  bool goesOut;  // to the line
  bool comesIn;  // from it
};

constexpr std::array<Kind, 5> kKinds = {{{"data", 64, true, false},
                                         {"notification", 1, false, true},
                                         {"notification", 64, false, true},
                                         {"notification", 4096, false, true},
                                         {"echo", 64, true, true}}};

class Conversation {
 public:
  Conversation(const Kind& what, const Line& line, Peer& peer)
      : kind(what), serial(line), relay(peer), data(what.bytes), came(what.bytes) {
    std::generate(data.begin(), data.end(),
                  [next = 0]() mutable { return static_cast<uint8_t>(7 * next++); });
  }

  // One after the other: each begins when the one before it has arrived.
  void Pass(int messages) {
    for (int message = 0; message < messages; ++message) {
      if (kind.goesOut) {
        awaited = "a command's data on the line";
        relay.Send(0, data.data(), data.size());
        serial.ReadExactly(came.data(), came.size());
        Compare();
      }
      if (kind.comesIn) {
        awaited = "a notification";
        serial.Write(data.data(), data.size());
        relay.ReceiveExactly(0, came.data(), came.size());
        Compare();
      }
    }
  }

 private:
  void Compare() {
    if (came != data) {
      throw std::runtime_error("other bytes came than were sent");
    }
    std::fill(came.begin(), came.end(), uint8_t{0});
  }

  const Kind kind;
  const Line& serial;
  Peer& relay;
  std::vector<uint8_t> data;
  std::vector<uint8_t> came;
};

void Count(const Kind& kind, char** words) {
  if (IsListenedAt(kTcpPort)) {
    throw std::runtime_error("somebody listens at the program's port already");
  }
  (void)alarm(kDeadlineSeconds);
  const Line line("/dev/ttyS2");
  const Process process(words);
  const Counter user(process.Id(), false);
  const Counter kernel(process.Id(), true);
  process.Start();
  WaitUntilItListens(process);
  awaited = "the answer to an open";
  Peer peer({kTcpPort}, {"#PhysicalPort0"});
  peer.Open(0);
  Conversation conversation(kind, line, peer);
  conversation.Pass(kFirstMessages);
  const uint64_t userBefore = user.Read();
  const uint64_t kernelBefore = kernel.Read();
  conversation.Pass(kMessages);
  const uint64_t userAfter = user.Read();
  const uint64_t kernelAfter = kernel.Read();
  std::cout << kind.way << '-' << kind.bytes << ' ' << (userAfter - userBefore) / kMessages << ' '
            << (kernelAfter - kernelBefore) / kMessages << std::endl;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << "usage: message-instructions PROGRAM [ARGUMENT...]\n";
    return 2;
  }
  try {
    if (std::signal(SIGALRM, TellWhatIsAwaited) == SIG_ERR) {
      throw std::runtime_error("no handler for SIGALRM");
    }
    TakePriority(kPeerPriority);
    for (const Kind& kind : kKinds) {
      Count(kind, &argv[1]);
    }
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "message-instructions: " << error.what() << '\n';
    return 1;
  }
}
