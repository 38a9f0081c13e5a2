// SPDX-License-Identifier: MIT
// A file that another user has planted at the dump's path in a sticky /tmp. What happens is the
// kernel's decision, by two settings of the machine. Needs root: only root can give files away.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "e2e/ServiceTest.h"

namespace {

constexpr const char* kDump = "/tmp/deviceinfo.txt";
constexpr const char* kVictim = "/tmp/e2e/victim";
constexpr const char* kBefore = "what was there before";
constexpr uid_t kOtherUser = 65534;

int Setting(const std::string& name) {
  return std::stoi(workplace::ReadWhole("/proc/sys/fs/" + name));
}

class OtherOwnerTest : public ServiceTest {
 protected:
  OtherOwnerTest() { configuration.Port("#USBSerialPort0", "9600 8 none 1 none"); }

  void SetUp() override {
    struct stat tmp {};
    ASSERT_EQ(0, stat("/tmp", &tmp));
    ASSERT_EQ(01777U, tmp.st_mode & 07777U);
    workplace::WriteWhole(kVictim, kBefore);
    if (chown(kVictim, kOtherUser, kOtherUser) != 0) {
      ASSERT_EQ(nullptr, std::getenv("CI")) << "there it must run, and needs root";
      GTEST_SKIP() << "needs root: " << std::strerror(errno);
    }
    ASSERT_EQ(0, chown(kVictim, 0, 0));
  }

  void SearchFindsNothing() {
    StartLinked();
    EXPECT_EQ(Wire("0017 01 02 000F '#USBSerialPort0' 0002"),
              relay->Answer("0015 01 02 000F '#USBSerialPort0'"));
  }
};

TEST_F(OtherOwnerTest, ASymbolicLinkIsFollowedOnlyWhereTheKernelDoesNotProtectAgainstIt) {
  ASSERT_EQ(0, symlink(kVictim, kDump));
  ASSERT_EQ(0, lchown(kDump, kOtherUser, kOtherUser));
  SearchFindsNothing();
  if (Setting("protected_symlinks") != 0) {
    EXPECT_EQ(kBefore, workplace::ReadWhole(kVictim));
    EXPECT_TRUE(std::filesystem::is_symlink(kDump));
  } else {
    EXPECT_NE(kBefore, workplace::ReadWhole(kVictim));
    EXPECT_FALSE(std::filesystem::is_symlink(kDump));
  }
}

// The service runs as root here, so the file's own mode stops nothing.
TEST_F(OtherOwnerTest, AFileIsOverwrittenOnlyWhereTheKernelDoesNotProtectAgainstIt) {
  const std::string made = std::string(120, 'x');
  workplace::WriteWhole("/tmp/planted", made);
  ASSERT_EQ(0, chown("/tmp/planted", kOtherUser, kOtherUser));
  const int held = open("/tmp/planted", O_RDONLY | O_CLOEXEC);
  std::filesystem::rename("/tmp/planted", kDump);
  SearchFindsNothing();
  std::string now(4096, '\0');
  now.resize(static_cast<size_t>(std::max<ssize_t>(0, read(held, now.data(), now.size()))));
  (void)close(held);
  if (Setting("protected_regular") != 0) {
    EXPECT_EQ(made, now);
  } else {
    EXPECT_NE(made, now);
  }
  EXPECT_FALSE(std::filesystem::exists(kDump));  // root may remove it from a sticky folder
}

}  // namespace
