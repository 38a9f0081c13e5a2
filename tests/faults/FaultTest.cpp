// SPDX-License-Identifier: MIT
#include "faults/FaultTest.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <ostream>

namespace {

constexpr const char* kStarter = "/tmp/e2e/bin/start-service";

std::filesystem::path Tools() {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path();
}

}  // namespace

void PrintTo(const FaultRow& row, std::ostream* out) { *out << row.name; }

void Shell(const std::string& text) { ASSERT_EQ(0, std::system(text.c_str())) << text; }

FaultTest::FaultTest() {
  configuration.Port("#USBSerialPort0", "9600 8 none 1 none");
  udev.AddAdapterAtPort(0, "/dev/ttyUSB0");
  adapter = std::make_unique<Device>("/dev/ttyUSB0");
}

// The starter takes the place of an emulator, and hands over to the real one, if any.
void FaultTest::StartAs() {
  workplace::WriteWhole(kStarter, "#!/bin/bash\nset -e\nFAULT_TOOLS=" + Tools().string() + "\n" +
                                      (start != nullptr ? start : "exec \"$@\"") + "\n");
  std::filesystem::permissions(kStarter, std::filesystem::perms::owner_all);
  const char* const emulator = std::getenv("SPH_EMULATOR");
  const std::string before = emulator != nullptr ? emulator : "";
  (void)setenv("SPH_EMULATOR", (std::string(kStarter) + " " + before).c_str(), 1);
  StartService();
  (void)setenv("SPH_EMULATOR", before.c_str(), 1);
}

void FaultTest::Bring(State state) {
  if (state >= State::kStarting) {
    StartAs();
  }
  if (state == State::kListening) {
    ASSERT_TRUE(Service::Prints("[LISTEN]IP:"));
  }
  if (state >= State::kLinked) {
    Link();
  }
  if (state >= State::kPortOpen) {
    device = std::make_unique<Device>();
    ASSERT_EQ(Wire(kPort0Opened), relay->Answer(kOpenPort0));
  }
}

std::string FaultTest::StopAtOnce(int signal) const {
  (void)kill(inner != 0 ? inner : service->Pid(), signal);
  (void)Eventually([this] { return service->State() != "still running"; },
                   std::chrono::seconds(20));
  return service->State();
}

void FaultTest::Expect(Outcome outcome) {
  switch (outcome) {
    case Outcome::kListensAgain:
      Link();
      [[fallthrough]];
    case Outcome::kGoesOn:
      ASSERT_EQ(Wire(kFenceReply), relay->Answer(kFence));
      Settle();
      [[fallthrough]];
    case Outcome::kStops:
      EXPECT_EQ("exit 0", StopAtOnce(SIGTERM));
      return;
    case Outcome::kEndsWith0:
      EXPECT_EQ("exit 0", service->WaitForExit());
      return;
    case Outcome::kEndsWith255:
      EXPECT_EQ("exit 255", service->WaitForExit());
      return;
    case Outcome::kShown:
      return;
  }
}

void FaultTest::ExpectDataBothWays() const {
  ASSERT_TRUE(device->Sends("A"));
  EXPECT_EQ(Wire(kReceivedA), relay->NextPacket());
  relay->Sends(kWriteB);
  EXPECT_EQ("B", device->Reads(1));
}

void FaultTable::PlayRow() {
  const FaultRow& row = GetParam();
  start = row.start;
  ASSERT_NO_FATAL_FAILURE(Bring(row.state));
  if (row.happens != nullptr) {
    ASSERT_NO_FATAL_FAILURE(row.happens(*this));
  }
  for (const char* const line : row.log) {
    EXPECT_TRUE(LogFile::Shows(line)) << line;
  }
  Expect(row.outcome);
}
