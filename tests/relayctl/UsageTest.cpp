// SPDX-License-Identifier: MIT
// Wrong use of each command: one line on standard error, and an exit status.
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <ostream>

#include "relayctl/RelayctlTest.h"

namespace {

struct WrongUse {
  const char* name;
  const char* arguments;
  int status;
  const char* line;  // a part of the one line
};

void PrintTo(const WrongUse& use, std::ostream* stream) { *stream << use.arguments; }

constexpr WrongUse kWrongUses[] = {
    {"NoCommand", "", 2, "a command is required"},
    {"UnknownCommand", "opne X", 2, "there is no command \"opne\""},
    {"UnknownOption", "--nonsense open X", 2, "--nonsense"},
    {"PortIsNoNumber", "--port x open X", 2, "--port"},
    {"PortTooLarge", "--port 65536 open X", 2, "--port"},
    {"PortTooSmall", "--port 0 open X", 2, "--port"},
    {"NegativeTimeout", "--timeout -1 open X", 2, "--timeout"},
    {"TimeoutNotANumber", "--timeout nan open X", 2, "--timeout: \"nan\" is no number from 0 to"},
    {"PatienceWithoutEnd", "--patience inf open X", 2, "--patience: \"inf\" is no number"},
    {"OpenNothing", "open", 2, "open: PORT is required"},
    {"OpenWhatTheShellTookForAComment", "open #PhysicalPort0", 2,
     "PORT is required; in a shell, a name that begins with # stands in quotes"},
    {"OpenByIds", "open 0403:6001", 2,
     "0403:6001: ports are opened by name only; relayctl suggest tells an adapter's name"},
    {"WriteByIds", "write 0403:6001 a", 2, "0403:6001: ports are opened by name only"},
    {"WatchByIds", "watch '#PhysicalPort0' 0403:6001", 2, "ports are opened by name only"},
    {"PipeByIds", "pipe 0403:6001", 2, "0403:6001: ports are opened by name only"},
    {"PtyByIds", "pty 0403:6001", 2, "0403:6001: ports are opened by name only"},
    {"ShareWhereTheServiceIs", "share", 2,
     "--listen: the service itself is to be at 60004: give it another port in its configuration"},
    {"ShareTwiceAtOnePort", "share --listen 60010 --watchers 60010", 2,
     "--watchers: 60010 is the port of the peers"},
    {"ShareAPtyWithoutAPath", "share --listen 60010 --pty '#PhysicalPort0='", 2,
     "--pty #PhysicalPort0=: there is no path behind the ="},
    {"ShareAPtyByIds", "share --listen 60010 --pty 0403:6001=/tmp/a", 2, "opened by name only"},
    {"PtyWithoutAMode", "pty '#PhysicalPort0' --mode 0x1", 2, "--mode: \"0x1\" is none of a"},
    {"PtyToBeRun", "pty '#PhysicalPort0' --mode 777", 2, "--mode: \"777\" is none of a terminal"},
    {"PtyOfNoGroup", "pty '#PhysicalPort0' --group nobody-here", 2,
     "--group: there is no group \"nobody-here\""},
    {"PtyOfAnEmptyMode", "pty '#PhysicalPort0' --mode ''", 2, "--mode: \"\" is none of a terminal"},
    {"PtyOfAnEmptyGroup", "pty '#PhysicalPort0' --group ''", 2, "--group: there is no group \"\""},
    {"TerminalByIds", "terminal 0403:6001", 2, "0403:6001: ports are opened by name only"},
    {"RecordByIds", "record 0403:6001", 2, "0403:6001: ports are opened by name only"},
    {"OpenWithoutTheHash", "open PhysicalPort0", 12,
     "or the name leads to no device; names begin with #: '#PhysicalPort0'"},
    {"WriteWithoutTheHash", "write PhysicalPort0 a", 12, "names begin with #: '#PhysicalPort0'"},
    {"OpenAnEmptyName", "open ''", 2, "a port name is never empty"},
    {"CloseNothing", "close", 2, "close: PORT is required"},
    {"CloseTwo", "close X Y", 2, "close: "},
    {"WriteNothing", "write", 2, "write: PORT is required"},
    {"WriteAnOption", "write X -1", 2, "write: -1: no such option"},
    {"WriteNoHexAtAll", "write X --hex", 2, "write: --hex: its value is missing"},
    {"WriteAnUnknownEscape", "write X 'a\\q'", 2, "unknown escape \"\\q\""},
    {"WriteHalfAnEscape", "write X 'a\\x4'", 2, "\\x needs two hex digits"},
    {"WriteABackslashAtTheEnd", "write X 'a\\'", 2, "unknown escape"},
    {"WriteNoHex", "write X --hex 4G", 2, "not hex bytes: \"4G\" at position 1"},
    {"WriteHalfAByte", "write X --hex '41 4'", 2, "not hex bytes: \"4\" at position 4"},
    {"WriteTwoThings", "write X text --hex 41", 2, "not several of them"},
    {"WriteAMissingFile", "write X --file /nowhere", 1, "cannot open /nowhere: No such file"},
    {"WriteAFolder", "write X --file /tmp", 1, "cannot read /tmp: Is a directory"},
    {"WriteWithoutAnOpen", "write X a --no-open", 2, "--no-open"},
    {"WriteBlocksTooLarge", "write X a --blocks 65536", 2, "--blocks"},
    {"WatchNothing", "watch", 2, "watch: PORT is required"},
    {"WatchUnknownTime", "watch X --time moon", 2, "--time"},
    {"WatchUnknownForm", "watch X --show bits", 2, "--show"},
    {"WatchLogNowhere", "watch X --log /nowhere/log", 1, "cannot write /nowhere/log: No such file"},
    {"PipeNothing", "pipe", 2, "pipe: PORT is required"},
    {"PipeUntilNoEscape", "pipe X --until '\\q'", 2, "unknown escape"},
    {"RecordNeither", "record --output /tmp/e2e/r", 2, "give either PORT or --listen"},
    {"RecordBoth", "record X --listen 7000", 2, "give either PORT or --listen"},
    {"RecordNowhere", "record X -o /nowhere/r", 1, "cannot write /nowhere/r: No such file"},
    {"RecordListenTaken", "record --listen 60004", 1,
     "cannot listen on 127.0.0.1:60004: Address already in use"},
    {"RecordAsJson", "-j record X", 2, "record: has nothing to print as JSON"},
    {"PipeAsJson", "pipe X -j", 2, "pipe: has nothing to print as JSON"},
    {"PtyAsJson", "pty X --json", 2, "pty: has nothing to print as JSON"},
    {"TerminalAsJson", "-j terminal X", 2, "terminal: has nothing to print as JSON"},
    {"TerminalWithoutAPlace", "terminal X --with tio", 2, "--with: lacks {}"},
    {"PtyWithoutAPlace", "pty X --exec 'cat >x'", 2, "--exec: lacks {}"},
    {"ReplayNotANumber", "replay /dev/null --speed nan", 2, "--speed: \"nan\" is no number"},
    {"ReplayNothing", "replay", 2, "replay: FILE is required"},
    {"ReplayAMissingFile", "replay /nowhere", 1, "cannot read /nowhere: No such file"},
    {"ReplayAFolder", "replay /etc", 1, "cannot read /etc: Is a directory"},
    {"ReplayNoRecording", "replay /etc/passwd", 2, "/etc/passwd:1: "},
    {"ReplayNoSpeed", "replay /dev/null --speed 0", 2, "--speed is more than 0"},
    {"RawNothing", "raw", 2, "raw: HEX is required"},
    {"RawNoHex", "raw 00 xy", 2, "not hex bytes: \"xy\""},
    {"DecodeNoHex", "decode 00z", 2, "not hex bytes: \"z\""},
    {"DecodeTwoThings", "decode 00 --file x", 2, "give HEX or --file"},
    {"DecodeAMissingFile", "decode --file /nowhere", 1, "cannot open /nowhere: No such file"},
    {"LogAPortsName", "log --device '#PhysicalPort0'", 2, "the log has devices, as /dev/ttyUSB0"},
    {"LogTwoPlaces", "log --unit x y", 2, "log: give FILE or --unit, not both"},
    {"LogAMissingFile", "log --follow /nowhere", 1, "cannot open /nowhere: No such file"},
    {"LogUnknownLevel", "log --level 3", 2, "--level"},
    {"ServeAsJson", "serve --json", 2, "serve: has nothing to print as JSON"},
    {"ServeTaken", "serve", 1, "cannot listen on 127.0.0.1:60004: Address already in use"},
    {"ServeNoDevice", "serve --port '#PhysicalPort0'", 2, "lacks =DEVICE behind the port"},
    {"ServeUnknownDevice", "serve --port '#PhysicalPort0=exec:'", 2,
     "--port: \"exec:\" is none of echo, pty, pty:PATH, exec:COMMAND, recording:FILE"},
    {"ServeAMissingRecording", "serve --port '#PhysicalPort0=recording:/nowhere'", 1,
     "cannot open /nowhere: No such file"},
    {"ServeNoRecording", "serve --port '#PhysicalPort0=recording:/etc/passwd'", 2,
     "/etc/passwd:1: "},
    {"ServeUnknownPort", "serve --port '#USBSerialPort6=echo'", 2,
     "\"#USBSerialPort6\" leads to no device; #PhysicalPort0 and #USBSerialPort0 to 5 do"},
    {"ServeTwoDevices", "serve --port '#PhysicalPort0=echo' --port '#PhysicalPort0=pty'", 2,
     "--port: two devices at #PhysicalPort0"},
    {"ServeUnknownProvocation", "serve --usr1 jump", 2, "\"jump\" is none of unplug"},
    {"ServeTheServicesPort", "serve -p 7000", 2, "-p: no such option"},
    {"DecodeUnknownDirection", "decode 00 --direction up", 2, "--direction"},
};

class UsageTest : public RelayctlTest {};

class WrongUseTest : public RelayctlTest, public testing::WithParamInterface<WrongUse> {};

TEST_P(WrongUseTest, GivesOneLineAndAStatus) {
  StartListening();
  const Outcome outcome = RunShell(std::string("relayctl ") + GetParam().arguments + " </dev/null");
  EXPECT_EQ(GetParam().status, outcome.status);
  EXPECT_TRUE(outcome.output.starts_with("relayctl: ")) << outcome.output;
  EXPECT_NE(std::string::npos, outcome.output.find(GetParam().line)) << outcome.output;
  EXPECT_EQ(1, std::count(outcome.output.begin(), outcome.output.end(), '\n')) << outcome.output;
}

INSTANTIATE_TEST_SUITE_P(EachCommand, WrongUseTest, testing::ValuesIn(kWrongUses),
                         NameOf<WrongUse>);

TEST_F(UsageTest, AnErrorShowsNoControlBytesOfWhatWasTyped) {
  const Outcome outcome = RunShell("relayctl \"$(printf 'a\\033[31mb\\nc')\"");
  EXPECT_EQ(2, outcome.status);
  EXPECT_EQ(std::string::npos, outcome.output.find('\x1B')) << outcome.output;
}

// The kernel's choice of a local port narrowed down so that it takes the service's for one: these
// two ranges lead bind and connect there.
TEST_F(UsageTest, WithoutAServiceNobodyIsConnectedToHimself) {
  const auto set = [](const std::string& parameter, const std::string& value) {
    EXPECT_TRUE(std::ofstream("/proc/sys/net/ipv4/" + parameter) << value << std::flush) << value;
  };
  set("ip_local_reserved_ports", "\n");
  for (const char* const range : {"60003 60004", "60004 60005"}) {
    set("ip_local_port_range", range);
    const Outcome outcome = RunShell("relayctl --patience 0.2 --timeout 5 open X");
    EXPECT_EQ("relayctl: nothing listens on 127.0.0.1:60004: is the service running?\n",
              outcome.output)
        << range;
  }
  set("ip_local_port_range", "60004 60004");
  EXPECT_EQ("relayctl: cannot connect to 127.0.0.1:60004: Address already in use\n",
            RunShell("relayctl --patience 0.2 --timeout 5 open X").output);
}

TEST_F(UsageTest, ASecondPeerLearnsThatTheLinkIsTaken) {
  StartLinked();
  const Outcome outcome = RunShell("relayctl --timeout 0.5 open X");
  EXPECT_EQ(
      "relayctl: no answer from 127.0.0.1:60004 within 500 ms: another peer holds the link: "
      "RelayctlCommand (process " +
          std::to_string(getpid()) + ")\n",
      outcome.output);
  EXPECT_EQ(4, outcome.status);
}

TEST_F(UsageTest, NobodyIsBlamedForAServiceThatHangs) {
  StartListening();
  service->Signal(SIGSTOP);
  for (const char* const command : {"open X", "close X", "--patience 0 pipe X"}) {
    const Outcome outcome =
        RunShell(std::string("relayctl --timeout 0.5 ") + command + " </dev/null");
    EXPECT_TRUE(outcome.output.starts_with("relayctl: no answer from 127.0.0.1:60004")) << command;
    EXPECT_TRUE(
        outcome.output.ends_with(": the service does not answer; relayctl doctor tells more\n"))
        << outcome.output;
    EXPECT_EQ(4, outcome.status) << command;
  }
}

struct ClosedStream {
  const char* name;
  const char* command;
  const char* line;
};

void PrintTo(const ClosedStream& stream, std::ostream* out) { *out << stream.command; }

constexpr const char* kNoOutput =
    "relayctl: cannot write to standard output: Bad file descriptor\n";
constexpr const char* kNoInput = "relayctl: cannot read standard input: Bad file descriptor\n";

constexpr ClosedStream kClosedStreams[] = {
    {"OpenOutput", "open '#PhysicalPort0' >&-", kNoOutput},
    {"WriteOutput", "write '#PhysicalPort0' a >&-", kNoOutput},
    {"WatchOutput", "watch '#PhysicalPort0' --for 5 >&-", kNoOutput},
    {"PipeOutput", "pipe '#PhysicalPort0' >&-", kNoOutput},
    {"HelpOutput", "--help >&-", kNoOutput},
    {"PipeInput", "pipe '#PhysicalPort0' <&-", kNoInput},
    {"WriteInput", "write '#PhysicalPort0' <&-", kNoInput},
    {"DecodeInput", "decode <&-", kNoInput},
    {"FullOutput", "--help >/dev/full",
     "relayctl: cannot write to standard output: No space left on device\n"},
};

class ClosedStreamTest : public RelayctlTest, public testing::WithParamInterface<ClosedStream> {};

// Its number would else go to the link, and what is printed to the service.
TEST_P(ClosedStreamTest, IsAnErrorWhereItMatters) {
  device = std::make_unique<Device>();
  StartListening();
  Background command(std::string("relayctl ") + GetParam().command);
  EXPECT_EQ("exit 1", command.WaitForExit());
  EXPECT_EQ(GetParam().line, command.Output());
}

INSTANTIATE_TEST_SUITE_P(EachCommand, ClosedStreamTest, testing::ValuesIn(kClosedStreams),
                         NameOf<ClosedStream>);

TEST_F(UsageTest, StreamsThatDoNotMatterMayBeClosed) {
  device = std::make_unique<Device>();
  StartListening();
  EXPECT_EQ(0, RunShell("relayctl write '#PhysicalPort0' a <&- 2>&-").status);
  EXPECT_EQ("a", device->Reads(1));
}

TEST_F(UsageTest, HelpAndVersionAreNoErrors) {
  EXPECT_EQ(0, RunShell("relayctl --help").status);
  EXPECT_EQ(0, RunShell("relayctl watch --help").status);
  const Outcome version = RunShell("relayctl --version");
  EXPECT_EQ(0, version.status);
  EXPECT_TRUE(version.output.starts_with("relayctl ")) << version.output;
}

}  // namespace
