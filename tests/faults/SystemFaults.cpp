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

// The tool becomes a shell script.
void ToolIs(const std::string& script) {
  workplace::WriteWhole(kTool, "#!/bin/sh\n" + script + "\n");
  std::filesystem::permissions(kTool, std::filesystem::perms::owner_all);
}

struct SearchRow {
  const char* name;
  std::string tool;    // what it does
  std::string before;  // what happens before the search, as shell text
  const char* reply;   // to an open of the adapter
  std::string after;   // what holds then
};

void PrintTo(const SearchRow& row, std::ostream* out) { *out << row.name; }

class SearchTest : public FaultTest, public testing::WithParamInterface<SearchRow> {};

TEST_P(SearchTest, IsAnsweredAndGoesOn) {
  const SearchRow& row = GetParam();
  Bring(State::kLinked);
  ToolIs(row.tool);
  Shell(row.before);
  EXPECT_EQ(Wire(row.reply), relay->Answer(kOpenAdapter));
  Shell(row.after);
  EXPECT_LT(service->ResidentKilobytes(), 100000U);
  if (row.reply == kAdapterNotFound) {
    EXPECT_TRUE(LogFile::Shows(kNoDeviceFound));
  }
  Expect(Outcome::kGoesOn);
}

constexpr const char* kPrints = "cat /tmp/e2e/udev-database";
constexpr const char* kUnprepared = "true";
constexpr const char* kNoFile = "! [ -e /tmp/deviceinfo.txt ] && ! [ -L /tmp/deviceinfo.txt ]";

// A /tmp of its own for the service, in which the test's own files are where they were.
const std::string kSmallTmp =
    "mkdir /dev/shm/tmp && mount -t tmpfs -o size=16k faults /dev/shm/tmp && "
    "mkdir /dev/shm/tmp/e2e && mount --bind /tmp/e2e /dev/shm/tmp/e2e && "
    "mount --rbind /dev/shm/tmp /tmp";

const SearchRow kSearchRows[] = {
    {"ToolPrintsGarbage", "head -c 300000 /dev/urandom", kUnprepared, kAdapterNotFound, kNoFile},
    {"ToolPrintsOneLongLine", "head -c 3000000 /dev/zero | tr '\\0' P", kUnprepared,
     kAdapterNotFound, kNoFile},
    {"ToolPrintsTenMegabytes",
     "yes 'P: /devices/virtual/tty/tty1\nN: tty1\nE: DEVNAME=/dev/tty1\n' | head -c 10000000\n"
     "echo; echo; cat /tmp/e2e/udev-database",
     kUnprepared, kAdapterOpened, kNoFile},
    {"TmpIsFull", kPrints, kSmallTmp + " && ! head -c 1000000 /dev/zero >/tmp/filling 2>&-",
     kAdapterNotFound, kNoFile},
    // The beginning of the database fits, the adapter does not.
    {"TmpBecomesFull", std::string("yes 'P: /devices/virtual\n' | head -c 20000; ") + kPrints,
     kSmallTmp, kAdapterNotFound, kNoFile},
    {"TmpIsReadOnly", kPrints, kSmallTmp + " && mount -o remount,bind,ro /tmp", kAdapterNotFound,
     kNoFile},
    // The shell follows the link and overwrites what it leads to. What is removed is the link.
    // Where links in /tmp are protected, this is left to somebody with the service's own rights.
    {"DumpIsALinkToAFile", kPrints,
     "echo precious >/tmp/e2e/precious && ln -s /tmp/e2e/precious /tmp/deviceinfo.txt",
     kAdapterOpened, std::string("cmp /tmp/e2e/udev-database /tmp/e2e/precious && ") + kNoFile},
    // As with a file of someone else in a sticky folder, it can be neither written nor removed.
    // What it says is believed.
    {"DumpIsOfSomeoneElse", kPrints,
     "cp /tmp/e2e/udev-database /tmp/deviceinfo.txt && "
     "mount --bind /tmp/deviceinfo.txt /tmp/deviceinfo.txt && "
     "mount -o remount,bind,ro /tmp/deviceinfo.txt && : >/tmp/e2e/udev-database",
     kAdapterOpened, "[ -s /tmp/deviceinfo.txt ]"},
};

INSTANTIATE_TEST_SUITE_P(Tool, SearchTest, testing::ValuesIn(kSearchRows), NameOf<SearchRow>);

void Search(FaultTest& test, const char* reply) {
  EXPECT_EQ(Wire(reply), test.relay->Answer(kOpenAdapter));
  EXPECT_FALSE(DumpIsThere());
}

void ToolIsMissing(FaultTest& test) {
  std::filesystem::remove(kTool);
  Search(test, kAdapterNotFound);
  EXPECT_TRUE(Service::PrintsError("udevadm"));  // what the shell says
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
  test.Settle();
  EXPECT_EQ("exit 0", test.StopAtOnce(SIGTERM));
  EXPECT_FALSE(DumpIsThere());
  Shell("kill $(cat /tmp/e2e/older)");
  EXPECT_TRUE(Eventually([&] { return kill(-test.service->Pid(), 0) == -1; }))
      << "the tool is left";
}

void LogGoesToStandardError(FaultTest& test, const std::string& why) {
  ASSERT_EQ(Wire(kFenceReply), test.relay->Answer(kFence));
  EXPECT_TRUE(Service::PrintsError(": cannot be written, lines go to standard error: " + why));
  EXPECT_TRUE(Service::PrintsError("close command proc."));
}

void LogOnAFullDisk(FaultTest& test) { LogGoesToStandardError(test, "No space left on device"); }

void LogThatMayNotGrow(FaultTest& test) { LogGoesToStandardError(test, "File too large"); }

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
constexpr const char* kLimitedLog =
    "head -c 131072 /dev/zero >/tmp/e2e/limited; ulimit -f 128; "
    "exec env KXLOGGER_FILE=/tmp/e2e/limited \"$@\"";

// clang-format off
const FaultRow kSystemRows[] = {
    // name                      state              start          happens                     log                  outcome
    {"ToolIsMissing",            State::kLinked,    kWithoutTools, ToolIsMissing,              kNoAdapter, Outcome::kGoesOn},
    {"StopWhileDumpIsAFifo",     State::kLinked,    kPlain,        StopWhileDumpIsAFifo,       {}, Outcome::kStops},
    {"StopSparesOlderChildren",  State::kLinked,    kWithOlderChild, StopDuringASearchWithAnOlderChild, {kStopped}, Outcome::kShown},
#ifdef SPH_WITHOUT_CHILDREN
    {"NoProcessCanStart",        State::kLinked,    kWithoutChildren, NoProcessCanStart,       kNoAdapter, Outcome::kGoesOn},
#endif
    {"LogOnAFullDisk",           State::kPortOpen,  kFullLog,      LogOnAFullDisk,             {}, Outcome::kGoesOn},
    {"LogThatMayNotGrow",        State::kPortOpen,  kLimitedLog,   LogThatMayNotGrow,          {}, Outcome::kGoesOn},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(System, FaultTable, testing::ValuesIn(kSystemRows), NameOf<FaultRow>);

}  // namespace
