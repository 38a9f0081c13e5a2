// SPDX-License-Identifier: MIT
#include "relayctl/RelayctlTest.h"

#include <cstdlib>
#include <ctime>
#include <filesystem>

namespace {

namespace fs = std::filesystem;

int backgrounds = 0;

// Where the tests run under an emulator, it stands in front.
void WriteWrapper() {
  const char* const emulator = std::getenv("SPH_EMULATOR");
  const std::string path = std::string(workplace::kPrograms) + "/relayctl";
  const std::string program = fs::read_symlink("/proc/self/exe").parent_path() / "relayctl";
  workplace::WriteWhole(path, std::string("#!/bin/sh\nexec ") +
                                  (emulator != nullptr ? emulator : "") + " " + Quoted(program) +
                                  " \"$@\"\n");
  fs::permissions(path, fs::perms::owner_all);
}

}  // namespace

Background::Background(const std::string& command)
    : Background(command, std::string(workplace::kFolder) + "/background-" +
                              std::to_string(++backgrounds)) {}

Background::Background(const std::string& command, const std::string& outputFile)
    : ChildProcess(
          {{"/bin/sh", "-c", "exec " + command}, OwnEnvironment(), outputFile, outputFile}),
      file(outputFile) {}

bool Background::Prints(const std::string& text) const {
  return Eventually([&] { return Output().find(text) != std::string::npos; });
}

uint64_t Background::ProcessorTime() const {
  clockid_t clock{};
  EXPECT_EQ(0, clock_getcpuclockid(Pid(), &clock));
  timespec time{};
  EXPECT_EQ(0, clock_gettime(clock, &time));
  return static_cast<uint64_t>(time.tv_sec * 1000 + time.tv_nsec / 1000000);
}

void ExpectHas(const std::string& text, const std::string& part) {
  EXPECT_NE(std::string::npos, text.find(part)) << "not there: " << part << "\nin:\n" << text;
}

void ExpectHasNot(const std::string& text, const std::string& part) {
  EXPECT_EQ(std::string::npos, text.find(part)) << "there: " << part << "\nin:\n" << text;
}

RelayctlTest::RelayctlTest() {
  const std::string path = std::getenv("PATH") != nullptr ? std::getenv("PATH") : "/usr/bin:/bin";
  (void)setenv("PATH", (std::string(workplace::kPrograms) + ":" + path).c_str(), 1);
  (void)setenv("VOST_CONFIG", workplace::kConfiguration, 1);
  (void)setenv("LC_ALL", "C.UTF-8", 1);
  WriteWrapper();
}

void RelayctlTest::StartListening(size_t count) {
  StartService();
  ASSERT_TRUE(Service::Prints("[LISTEN]IP:", count)) << "the service does not listen";
}

void RelayctlTest::PlugAndStart() {
  device = std::make_unique<Device>();
  StartListening();
}

void RelayctlTest::StartLine() {
  socat = std::make_unique<Background>(std::string("socat pty,raw,echo=0,link=/dev/ttyS2 ") +
                                       "pty,raw,echo=0,link=" + kFar);
  ASSERT_TRUE(Eventually([] { return fs::exists("/dev/ttyS2") && fs::exists(kFar); }));
  StartListening();
}

void RelayctlTest::StartPty() {
  pty = std::make_unique<Background>(std::string("relayctl pty ") + kPort + " --link " + kLink);
}
