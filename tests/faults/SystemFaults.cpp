// SPDX-License-Identifier: MIT
// Faults of the system around the service: udevadm, /tmp, the dump's path, descriptors, the log.

#include <csignal>
#include <filesystem>

#include "faults/FaultTest.h"

namespace {

constexpr const char* kDump = "/tmp/deviceinfo.txt";
constexpr const char* kTool = "/tmp/e2e/bin/udevadm";

bool DumpIsThere() {
  std::error_code error;
  return std::filesystem::exists(std::filesystem::symlink_status(kDump, error));
}

void Search(FaultTest& test, const char* reply, bool leavesAFile = false) {
  EXPECT_EQ(Wire(reply), test.relay->Answer(kOpenAdapter));
  EXPECT_EQ(leavesAFile, DumpIsThere());
}

// The tool becomes a shell script.
void ToolIs(const std::string& script) {
  workplace::WriteWhole(kTool, "#!/bin/sh\n" + script + "\n");
  std::filesystem::permissions(kTool, std::filesystem::perms::owner_all);
}

void ToolIsMissing(FaultTest& test) {
  std::filesystem::remove(kTool);
  Search(test, kAdapterNotFound);
  EXPECT_TRUE(Service::PrintsError("udevadm"));  // what the shell says
}

void ToolIsNoProgram(FaultTest& test) {
  workplace::WriteWhole(kTool, "text");
  Search(test, kAdapterNotFound);
}

void ToolIsSlow(FaultTest& test) {
  ToolIs("sleep 5; cat /tmp/e2e/udev-database");
  Search(test, kAdapterOpened);
}

void ToolFails(FaultTest& test) {
  ToolIs("exit 1");
  Search(test, kAdapterNotFound);
}

// What it printed before counts.
void ToolFailsAtTheEnd(FaultTest& test) {
  ToolIs("cat /tmp/e2e/udev-database; exit 1");
  Search(test, kAdapterOpened);
}

void ToolIsKilled(FaultTest& test) {
  ToolIs("kill -KILL $$");
  Search(test, kAdapterNotFound);
}

void ToolPrintsNothing(FaultTest& test) {
  ToolIs("exit 0");
  Search(test, kAdapterNotFound);
}

void ToolPrintsGarbage(FaultTest& test) {
  ToolIs("head -c 300000 /dev/urandom");
  Search(test, kAdapterNotFound);
}

void ToolPrintsOneEndlessLine(FaultTest& test) {
  ToolIs("head -c 3000000 /dev/zero | tr '\\0' P");
  Search(test, kAdapterNotFound);
}

void ToolPrintsTenMegabytes(FaultTest& test) {
  ToolIs(
      "yes 'P: /devices/virtual/tty/tty1\nN: tty1\nE: DEVNAME=/dev/tty1\n' | head -c 10000000\n"
      "echo; echo; cat /tmp/e2e/udev-database");
  Search(test, kAdapterOpened);
}

void ToolPrintsHalfARecord(FaultTest& test) {
  ToolIs("sed '$d' /tmp/e2e/udev-database");
  Search(test, kAdapterNotFound);
}

// A /tmp of its own for the service, in which the test's own files are where they were.
void MountTmp(const char* options) {
  Shell(std::string("mkdir /dev/shm/tmp && mount -t tmpfs -o ") + options +
        " faults /dev/shm/tmp && mkdir /dev/shm/tmp/e2e && mount --bind /tmp/e2e /dev/shm/tmp/e2e"
        " && mount --rbind /dev/shm/tmp /tmp");
}

void TmpIsFull(FaultTest& test) {
  MountTmp("size=16k");
  Shell("! head -c 1000000 /dev/zero >/tmp/filling 2>&-");
  Search(test, kAdapterNotFound);
}

// The beginning of the database fits, the adapter does not.
void TmpBecomesFull(FaultTest& test) {
  MountTmp("size=16k");
  ToolIs("yes 'P: /devices/virtual\n' | head -c 20000; cat /tmp/e2e/udev-database");
  Search(test, kAdapterNotFound);
}

void TmpIsReadOnly(FaultTest& test) {
  MountTmp("size=16k");
  Shell("mount -o remount,bind,ro /tmp");
  Search(test, kAdapterNotFound);
}

void DumpIsADirectory(FaultTest& test) {
  Shell("mkdir /tmp/deviceinfo.txt");
  Search(test, kAdapterNotFound, true);
}

// The shell follows the link and overwrites what it leads to. What is removed is the link. Where
// links in /tmp are protected, this is left to somebody with the service's own rights.
void DumpIsALinkToAPreciousFile(FaultTest& test) {
  Shell("echo precious >/tmp/e2e/precious && ln -s /tmp/e2e/precious /tmp/deviceinfo.txt");
  Search(test, kAdapterOpened);
  EXPECT_EQ(workplace::ReadWhole("/tmp/e2e/udev-database"),
            workplace::ReadWhole("/tmp/e2e/precious"));
}

// The file is made, and stays.
void DumpIsALinkToNothing(FaultTest& test) {
  Shell("ln -s /tmp/e2e/made /tmp/deviceinfo.txt");
  Search(test, kAdapterOpened);
  EXPECT_EQ(workplace::ReadWhole("/tmp/e2e/udev-database"), workplace::ReadWhole("/tmp/e2e/made"));
}

// As with a file of someone else in a sticky folder, it can be neither written nor removed. What it
// says is believed.
void DumpIsAFileOfSomeoneElse(FaultTest& test) {
  Shell(
      "cp /tmp/e2e/udev-database /tmp/deviceinfo.txt &&"
      "mount --bind /tmp/deviceinfo.txt /tmp/deviceinfo.txt &&"
      "mount -o remount,bind,ro /tmp/deviceinfo.txt");
  test.udev.Clear();
  Search(test, kAdapterOpened, true);
}

#ifdef SPH_WITHOUT_CHILDREN
// The limit of processes is reached: the shell that runs the tool does not start.
void NoProcessCanStart(FaultTest& test) { Search(test, kAdapterNotFound); }
#endif

// The shell waits for a reader before it starts the tool.
void StopWhileDumpIsAFifo(FaultTest& test) {
  Shell("mkfifo /tmp/deviceinfo.txt");
  test.relay->Sends(kOpenAdapter);
  ASSERT_TRUE(LogFile::Shows("3 SerialPortHandler SerialPortHandler.cpp 4 open command proc."));
  ASSERT_TRUE(Eventually([&] { return test.service->IsIdle(); }));
}

// A start script's helper became the service's child with the script's last command. The tool has a
// name that looks like the fields behind it.
void StopDuringASearchWithAnOlderChild(FaultTest& test) {
  ToolIs("cp /bin/sleep '/tmp/e2e/) S 1' && '/tmp/e2e/) S 1' 300");
  test.relay->Sends(kOpenAdapter);
  ASSERT_TRUE(Eventually(DumpIsThere));
  EXPECT_EQ("exit 0", test.StopAtOnce(SIGTERM));
  EXPECT_FALSE(DumpIsThere());
  Shell("kill $(cat /tmp/e2e/older)");
  EXPECT_TRUE(Eventually([&] { return kill(-test.service->Pid(), 0) == -1; }))
      << "the tool is left";
}

void LogGoesToStandardError(FaultTest& test) {
  ASSERT_EQ(Wire(kFenceReply), test.relay->Answer(kFence));
  EXPECT_TRUE(Service::PrintsError("/dev/full: cannot be written, lines go to standard error"));
  EXPECT_TRUE(Service::PrintsError("close command proc."));
}

const std::vector<const char*> kNoAdapter = {kNoDeviceFound};
constexpr const char* kPlain = nullptr;
// The kernel tells in hundredths of a second when a process began: older is what is older by that.
constexpr const char* kWithOlderChild =
    "sleep 300 & echo $! >/tmp/e2e/older; sleep 0.05; exec \"$@\"";
constexpr const char* kWithoutTools =
    "ln -s /bin/rm /tmp/e2e/bin/rm; PATH=/tmp/e2e/bin; exec \"$@\"";
#ifdef SPH_WITHOUT_CHILDREN
constexpr const char* kWithoutChildren = "exec \"$FAULT_TOOLS/without-children\" \"$@\"";
#endif
constexpr const char* kFullLog = "exec env KXLOGGER_FILE=/dev/full \"$@\"";

// clang-format off
const FaultRow kRows[] = {
    // name                      state              start          faults   happens                     packets         log                  outcome
    {"ToolIsMissing",            State::kLinked,    kWithoutTools, nullptr, ToolIsMissing,              {},             kNoAdapter,          Outcome::kGoesOn},
    {"ToolIsNoProgram",          State::kLinked,    kWithoutTools, nullptr, ToolIsNoProgram,            {},             kNoAdapter,          Outcome::kGoesOn},
    {"ToolIsSlow",               State::kLinked,    kPlain,        nullptr, ToolIsSlow,                 {},             {},                  Outcome::kGoesOn},
    {"ToolFails",                State::kLinked,    kPlain,        nullptr, ToolFails,                  {},             kNoAdapter,          Outcome::kGoesOn},
    {"ToolFailsAtTheEnd",        State::kLinked,    kPlain,        nullptr, ToolFailsAtTheEnd,          {},             {},                  Outcome::kGoesOn},
    {"ToolIsKilled",             State::kLinked,    kPlain,        nullptr, ToolIsKilled,               {},             kNoAdapter,          Outcome::kGoesOn},
    {"ToolPrintsNothing",        State::kLinked,    kPlain,        nullptr, ToolPrintsNothing,          {},             kNoAdapter,          Outcome::kGoesOn},
    {"ToolPrintsGarbage",        State::kLinked,    kPlain,        nullptr, ToolPrintsGarbage,          {},             kNoAdapter,          Outcome::kGoesOn},
    {"ToolPrintsOneLongLine",    State::kLinked,    kPlain,        nullptr, ToolPrintsOneEndlessLine,   {},             kNoAdapter,          Outcome::kGoesOn},
    {"ToolPrintsTenMegabytes",   State::kLinked,    kPlain,        nullptr, ToolPrintsTenMegabytes,     {},             {},                  Outcome::kGoesOn},
    {"ToolPrintsHalfARecord",    State::kLinked,    kPlain,        nullptr, ToolPrintsHalfARecord,      {},             kNoAdapter,          Outcome::kGoesOn},
    {"TmpIsFull",                State::kLinked,    kPlain,        nullptr, TmpIsFull,                  {},             kNoAdapter,          Outcome::kGoesOn},
    {"TmpBecomesFull",           State::kLinked,    kPlain,        nullptr, TmpBecomesFull,             {},             kNoAdapter,          Outcome::kGoesOn},
    {"TmpIsReadOnly",            State::kLinked,    kPlain,        nullptr, TmpIsReadOnly,              {},             kNoAdapter,          Outcome::kGoesOn},
    {"DumpIsADirectory",         State::kLinked,    kPlain,        nullptr, DumpIsADirectory,           {},             kNoAdapter,          Outcome::kGoesOn},
    {"DumpIsALinkToAFile",       State::kLinked,    kPlain,        nullptr, DumpIsALinkToAPreciousFile, {},             {},                  Outcome::kGoesOn},
    {"DumpIsALinkToNothing",     State::kLinked,    kPlain,        nullptr, DumpIsALinkToNothing,       {},             {},                  Outcome::kGoesOn},
    {"DumpIsOfSomeoneElse",      State::kLinked,    kPlain,        nullptr, DumpIsAFileOfSomeoneElse,   {},             {},                  Outcome::kGoesOn},
    {"StopWhileDumpIsAFifo",     State::kLinked,    kPlain,        nullptr, StopWhileDumpIsAFifo,       {},             {},                  Outcome::kStops},
    {"StopSparesOlderChildren",  State::kLinked,    kWithOlderChild, nullptr, StopDuringASearchWithAnOlderChild, {}, {kStopped},            Outcome::kShown},
#ifdef SPH_WITHOUT_CHILDREN
    {"NoProcessCanStart",        State::kLinked,    kWithoutChildren, nullptr, NoProcessCanStart,       {},             kNoAdapter,          Outcome::kGoesOn},
#endif
    {"LogOnAFullDisk",           State::kPortOpen,  kFullLog,      nullptr, LogGoesToStandardError,     {},             {},                  Outcome::kGoesOn},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(System, FaultTest, testing::ValuesIn(kRows), NameOf<FaultRow>);

}  // namespace
