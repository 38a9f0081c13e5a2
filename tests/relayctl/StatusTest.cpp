// SPDX-License-Identifier: MIT
// What status says of the real service in each situation, and that nothing of it is felt there.
#include <csignal>
#include <filesystem>
#include <regex>
#include <sstream>

#include "relayctl/StatusSituation.h"

namespace {

namespace fs = std::filesystem;

class StatusTest : public StatusSituation {
 protected:
  // By a user to whom the kernel shows no process of another.
  static std::string AmongHidden(const std::string& command) {
    return "unshare --mount sh -c 'mount -t proc -o hidepid=ptraceable proc /proc && "
           "exec setpriv --bounding-set -all " +
           command + "'";
  }
};

TEST_F(StatusTest, AServiceThatWorksIsHealthy) {
  StartWithOpenPort();
  ASSERT_TRUE(device->Sends("A"));
  EXPECT_NE("nothing", relay->NextPacket());
  relay->Sends("0018 04 02 000E '#PhysicalPort0' 01 01 0000");
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
  const std::string said = Status(0);
  EXPECT_TRUE(said.starts_with("healthy\n  service   SerialPortHandl (process " +
                               std::to_string(service->Pid()) + ") since "))
      << said;
  ExpectHas(said, ", threads 3, descriptors ");
  ExpectHas(said, "            configuration /tmp/e2e/vost.conf\n  log       /tmp/e2e/log\n");
  ExpectHas(said,
            "  link      127.0.0.1:60004 listens\n            peer " + Own() + " of root since ");
  // An open (20), an empty data command (24) and a fence (7); two answers (22, 9) and data (25).
  ExpectHas(said, "            51 bytes to the service (0 wait), 56 bytes from it (0 wait)\n");
  ExpectHas(said, "  #PhysicalPort0   open      /dev/ttyS2 since ");
  ExpectHas(said, ", 1 byte received\n");
  ExpectHasNot(said, "also: ");
}

TEST_F(StatusTest, WithoutAServiceItIsDown) {
  const std::string said = Status(2);
  EXPECT_TRUE(
      said.starts_with("down: the service does not run\n"
                       "  -> start the service: systemctl start serial-port-handler\n"))
      << said;
  ExpectHas(said, "  link      nothing listens on 127.0.0.1:60004\n");
  ExpectHas(said, "  #PhysicalPort0   not open  no /dev/ttyS2\n");
}

TEST_F(StatusTest, WithoutARelayServiceItNeedsAttention) {
  PlugAndStart();
  const std::string said = Status(1);
  EXPECT_TRUE(
      said.starts_with("needs attention: no relay service is connected: no port is open\n"
                       "  -> start the relay service"))
      << said;
  ExpectHas(said, "  #PhysicalPort0   not open  /dev/ttyS2\n");
}

TEST_F(StatusTest, NamesThePeerThatDoesNotRead) {
  StartWithOpenPort();
  Clog();
  const std::string said = Status(1);
  EXPECT_TRUE(said.starts_with("needs attention: " + Own() + " does not read: ")) << said;
  ExpectHas(said, "-> mend or restart " + Own() + "\n");
  ExpectHas(said, "open      /dev/ttyS2, no thread was seen to wait for its bytes\n");
  ExpectHas(said, "note: " + Own() + " has let the service wait for room for N s in all: ");
}

TEST_F(StatusTest, NamesThePeerThatWaits) {
  StartWithOpenPort();
  const Relay second;
  ASSERT_TRUE(second.IsConnected());
  const std::string said = Status(1);
  EXPECT_TRUE(said.starts_with("needs attention: " + Own() +
                               " is connected as well, and waits for ever in the queue\n"))
      << said;
  ExpectHas(said, "            1 more wait to be served\n");
}

TEST_F(StatusTest, NamesAPeerThatWaitsTwiceOnce) {
  StartWithOpenPort();
  const Relay second;
  const Relay third;
  ASSERT_TRUE(second.IsConnected() && third.IsConnected());
  const std::string said = Status(1);
  EXPECT_TRUE(said.starts_with("needs attention: " + Own() +
                               " is connected as well, 2 times, and waits for ever in the queue\n"))
      << said;
  ExpectHas(said, "            2 more wait to be served\n");
  ExpectHasNot(said, "also: ");
}

// It is in a write that the device does not take.
TEST_F(StatusTest, NamesAStuckWriteAndThePeerThatHasLeftUnnoticed) {
  StartWithOpenPort();
  StickWrite();
  relay->Sends(kFence);
  ExpectHas(StatusUntil("needs attention: the write to " + device->Node() +
                        " (#PhysicalPort0) has not moved for "),
            " bytes of " + Own() + " wait to be read, and none was in ");
  relay->Leaves();
  const std::string said = Status(1);
  ExpectHas(said, "needs attention: the write to ");
  ExpectHas(said, "-> wake the device up, or set flow = none if it has no flow control; then");
  ExpectHas(said, "also: the peer has left, which the service has not noticed for N s; ");
  ExpectHas(said, "            a peer that has left, which the service has not noticed since ");
  ExpectHas(said, ", a write is under way\n");
}

// A line may take that long from one step to the next.
TEST_F(StatusTest, DoesNotTakeASlowLineForAStuckOne) {
  configuration.Port("#PhysicalPort0", "2400 8 none 1 none");
  StartWithOpenPort();
  StickWrite();
  const std::string said = Status(0);
  ExpectHas(said, "note: a write to " + device->Node() +
                      " (#PhysicalPort0) has not moved for N s: the line is slow, or the device "
                      "takes no bytes\n");
}

TEST_F(StatusTest, NamesThePortWhoseAdapterIsUnplugged) {
  StartWithOpenPort();
  device->Unplug();
  ASSERT_TRUE(LogFile::Shows(
      "1 SerialPortHandler SerialPort.cpp 4 Close serial device. [Port /dev/ttyS2]"));
  const std::string said = Status(1);
  EXPECT_TRUE(std::regex_search(
      said, std::regex("^needs attention: #PhysicalPort0 is open and its device is away since "
                       "[0-9:]{8}\n  -> plug it in again at the same place: the port goes on")))
      << said;
  ExpectHas(said, "  #PhysicalPort0   away      no /dev/ttyS2 since ");
  ExpectHas(said, ": Close serial device. [Port /dev/ttyS2]\n");
  device->Plug();
  ASSERT_TRUE(Service::Prints("OPEN[/dev/ttyS2]\n", 2));
  ExpectHas(Status(0), "note: /dev/ttyS2 was away and came back\n");
}

TEST_F(StatusTest, NamesThePortsWithoutAnAdapterOrNode) {
  configuration.Port("#USBSerialPort0", "9600 8 none 1 none");
  configuration.Port("#USBSerialPort1", "9600 8 none 1 none");
  udev.AddAdapterAtPort(1, "/dev/ttyUSB7");
  StartLinked();
  const std::string said = Status(1);
  ExpectHas(said, "#PhysicalPort0: there is no /dev/ttyS2: an open is answered with status 4\n");
  ExpectHas(said, "#USBSerialPort0: no serial adapter at this place: an open is answered with ");
  ExpectHas(said, "#USBSerialPort1: there is no /dev/ttyUSB7: an open is answered with status 4\n");
  ExpectHas(said, "  #USBSerialPort0  not open  no device\n");
  ExpectHas(said, "  #USBSerialPort1  not open  no /dev/ttyUSB7\n");
}

TEST_F(StatusTest, SaysThatThereIsNoConfiguration) {
  fs::remove(workplace::kConfiguration);
  StartLinked();
  const std::string said = Status(1);
  EXPECT_TRUE(
      said.starts_with("needs attention: there is no configuration: every open is "
                       "answered with status 2\n"))
      << said;
  ExpectHas(said, "            configuration /tmp/e2e/vost.conf (not there)\n");
}

TEST_F(StatusTest, SaysWhatThisUserMayNotSee) {
  StartWithOpenPort();
  const std::string said = Status(1, "setpriv --bounding-set -all ");
  ExpectHas(said, "needs attention: this user may not see what the service does: ");
  ExpectHas(said, "program not shown\n");
  ExpectHas(said, "  log       this user may not see where the service writes it\n");
  ExpectHas(said, "peer a process that this user may not look into of root since ");
  ExpectHas(said, "            20 bytes to the service (0 wait), 22 bytes from it (0 wait)\n");
  ExpectHas(said, "  #PhysicalPort0   not known /dev/ttyS2\n");
  ExpectHas(said, "-> run this as root to see what the service sees\n");
}

// Such bytes begin a terminal's commands.
TEST_F(StatusTest, EscapesTheNameOfAPort) {
  workplace::WriteWhole(workplace::kConfiguration, "[#X\xC2\x9B]\nbaud = 9600\n");
  const std::string said = RunShell("relayctl status").output;
  ExpectHas(said, "  #X\\xC2\\x9B");
  ExpectHasNot(said, "\x9B");
}

// It would take the service that it does not see for one that does not run.
TEST_F(StatusTest, SaysNothingWhereProcessesAreHidden) {
  PlugAndStart();
  const Outcome outcome = RunShell(AmongHidden("relayctl status"));
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ(
      "relayctl: something listens on 127.0.0.1:60004, and this user sees only processes of its "
      "own (hidepid of /proc): run this as root\n",
      outcome.output);
}

TEST_F(StatusTest, DoesNotSayThatAServiceIsDownWhichMayBeHidden) {
  const Outcome outcome = RunShell(AmongHidden("relayctl status"));
  EXPECT_EQ(2, outcome.status);
  EXPECT_TRUE(
      outcome.output.starts_with("down: nothing listens on 127.0.0.1:60004\n"
                                 "  -> start the service: systemctl start serial-port-handler\n"
                                 "  service   not shown to this user\n"))
      << outcome.output;
  ExpectHas(outcome.output, "  log       this user may not see where the service writes it\n");
  ExpectHas(outcome.output, "  #PhysicalPort0   not known no /dev/ttyS2\n");
  ExpectHas(outcome.output,
            "also: what the service does, and whether it runs, is not known: this user sees only "
            "processes of its own (hidepid of /proc)\n  -> run this as root\n");
  ExpectHas(RunShell(AmongHidden("relayctl doctor")).output,
            "warning        what the service does, ");
  ExpectHas(RunShell(AmongHidden("relayctl -j status")).output, "\"service\":{\"configuration\":");
}

TEST_F(StatusTest, IsOneJsonObject) {
  StartWithOpenPort();
  const Outcome outcome = RunShell(
      "relayctl -j status | python3 -EsBc '\n"
      "import json, sys\n"
      "status = json.load(sys.stdin)\n"
      "port, = status[\"ports\"]\n"
      "print(status[\"status\"], status[\"attention\"],\n"
      "      status[\"link\"][\"received_bytes\"],\n"
      "      port[\"name\"], port[\"state\"], port[\"received_bytes\"],\n"
      "      0 <= status[\"time\"] - port[\"opened\"] < 100)'");
  EXPECT_EQ("healthy [] 20 #PhysicalPort0 open 0 True\n", outcome.output);
}

TEST_F(StatusTest, IsFiguresForPrometheus) {
  StartWithOpenPort();
  const Outcome outcome = RunShell("relayctl status --prometheus /tmp/e2e/figures");
  EXPECT_EQ(0, outcome.status);
  EXPECT_EQ("", outcome.output);
  const std::string figures = workplace::ReadWhole("/tmp/e2e/figures");
  ExpectHas(figures,
            "# HELP serial_port_handler_up Whether the service runs and listens.\n"
            "# TYPE serial_port_handler_up gauge\nserial_port_handler_up 1\n");
  ExpectHas(figures, "\nserial_port_handler_status 0\n");
  ExpectHas(figures, "\nserial_port_handler_peer_connected 1\n");
  ExpectHas(figures, "\nserial_port_handler_link_receive_bytes_total 20\n");
  ExpectHas(figures, "\nserial_port_handler_port_open{port=\"#PhysicalPort0\"} 1\n");
  ExpectHas(figures, "\nserial_port_handler_port_away{port=\"#PhysicalPort0\"} 0\n");
  const std::regex line("(# (HELP|TYPE) )?serial_port_handler_[a-z_]+([{ ].*)?");
  std::istringstream lines(figures);
  for (std::string one; std::getline(lines, one);) {
    EXPECT_TRUE(std::regex_match(one, line)) << one;
  }
}

TEST_F(StatusTest, FiguresThatCannotBeWrittenAreAnError) {
  const Outcome outcome = RunShell("relayctl status --prometheus /tmp/e2e/none/figures");
  EXPECT_EQ("relayctl: /tmp/e2e/none/figures: cannot be written: No such file or directory\n",
            outcome.output);
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ("relayctl: status: --prometheus: is empty\n",
            RunShell("relayctl status --prometheus ''").output);
}

TEST_F(StatusTest, EachAlertIsOnAFigureThatThereIs) {
  WriteTool("systemctl", "echo LoadState=loaded\necho NRestarts=3");
  std::string figures = RunShell("relayctl status --prometheus -").output;
  StartWithOpenPort();  // by no unit, so that systemd tells nothing of it
  figures += RunShell("relayctl status --prometheus -").output;
  const std::string alerts = workplace::ReadWhole(SPH_ALERTS);
  const std::regex name("serial_port_handler_[a-z_]+");
  size_t count = 0;
  for (std::sregex_iterator at(alerts.begin(), alerts.end(), name), end; at != end; ++at, ++count) {
    ExpectHas(figures, "# TYPE " + at->str() + " ");
  }
  EXPECT_LE(8U, count);
}

TEST_F(StatusTest, WatchLooksAgainUntilItIsInterrupted) {
  PlugAndStart();
  Background watch("relayctl status --watch");
  ASSERT_TRUE(watch.Prints("no relay service is connected"));
  relay = std::make_unique<Relay>();
  EXPECT_TRUE(watch.Prints("\nhealthy\n"));
  watch.Signal(SIGINT);
  EXPECT_EQ("exit 0", watch.WaitForExit());
}

// A clock that was set back leaves such lines in the log.
TEST_F(StatusTest, SaysWhenAnErrorIsStillToComeByTheClock) {
  StartWithOpenPort();
  workplace::WriteWhole(workplace::kLog,
                        "2999-01-01T00:00:00.000000Z 1 SerialPortHandler SerialPortHandler.cpp:1 4 "
                        "Command parse failed.\n");
  const std::string said = Status(0);
  EXPECT_TRUE(std::regex_search(
      said,
      std::regex("            last error [-0-9]{10} [0-9:]{8} \\(to come in [0-9]+ d( [0-9]+ h)? "
                 "by this machine's clock\\): Command parse failed\\.\n")))
      << said;
}

// Not in those of a shell, in front of all others.
TEST_F(StatusTest, SaysThatUdevadmIsMissing) {
  StartWithOpenPort();
  const std::string programs = workplace::kPrograms;
  fs::remove(programs + "/udevadm");
  const std::string words = "no USB port can be found: udevadm is not installed, or not on PATH\n";
  const std::string said = Status(1, "PATH=" + programs + " ");
  EXPECT_TRUE(said.starts_with("needs attention: " + words)) << said;
  const std::string doctors = RunShell("PATH=" + programs + " relayctl doctor").output;
  EXPECT_TRUE(doctors.starts_with("service\n")) << doctors;
  ExpectHas(doctors, "fault          " + words);
}

// What systemd and the package manager say, by tools that say it.
TEST_F(StatusTest, TellsOfTheUnitAndTheVersion) {
  WriteTool("systemctl",
            "echo LoadState=loaded\necho ActiveState=failed\necho SubState=failed\n"
            "echo Result=exit-code\necho ExecMainStatus=255\necho NRestarts=3");
  InstallAsPackage("1.0.0-1", Program());
  EXPECT_TRUE(
      Status(2).starts_with("down: the service does not run: serial-port-handler.service is "
                            "failed (failed), exit-code 255\n"));
  StartWithOpenPort();
  ExpectHas(Status(0), "            version 1.0.0-1, program ");
  InstallAsPackage("1.0.0-1", Program() + ".old");
  ExpectHas(Status(0), "            version not known, program ");
}

TEST_F(StatusTest, OpensNoLineAndNoConnection) {
  StartWithOpenPort();
  StickWrite();
  const Outcome outcome = RunShell(
      "ASAN_OPTIONS=detect_leaks=0 strace -f -qq -e trace=open,openat,connect,ioctl -o "
      "/tmp/e2e/calls relayctl status >/tmp/e2e/status; "
      "grep -E '/dev/|/fd/[0-9]+\"|connect\\(|TIOC' /tmp/e2e/calls");
  ExpectHas(workplace::ReadWhole("/tmp/e2e/status"), ", a write is under way\n");
  ExpectHas(outcome.output, "\"/dev/null\"");  // the calls are there
  ExpectHasNot(outcome.output, "/dev/tty");
  ExpectHasNot(outcome.output, "/dev/pts");
  ExpectHasNot(outcome.output, "/fd/");
  ExpectHasNot(outcome.output, "AF_INET");
  ExpectHasNot(outcome.output, "TIOCGICOUNT");
  ExpectHasNot(outcome.output, "TIOCOUTQ");
}

}  // namespace
