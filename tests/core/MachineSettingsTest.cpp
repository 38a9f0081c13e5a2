// SPDX-License-Identifier: MIT
// What the platform library says, in the service's own terms.
#include <gtest/gtest.h>
#include <pthread.h>

#include "core/Fakes.h"
#include "core/MachineSettings.h"

namespace {

struct RelayPortCase {
  const char* text;
  uint32_t port;
};

void PrintTo(const RelayPortCase& row, std::ostream* out) { *out << '"' << row.text << '"'; }

class MachineSettingsRelayPortTest : public testing::TestWithParam<RelayPortCase> {};

TEST_P(MachineSettingsRelayPortTest, TextDecidesThePort) {
  World::Get().relayPort = std::make_unique<std::string>(GetParam().text);
  EXPECT_EQ(GetParam().port, MachineSettings::RelayPort());
}

INSTANTIATE_TEST_SUITE_P(Texts, MachineSettingsRelayPortTest,
                         testing::Values(RelayPortCase{"1025", 1025}, RelayPortCase{"1024", 60004},
                                         RelayPortCase{"0", 60004}, RelayPortCase{"relay", 60004},
                                         RelayPortCase{"", 60004}, RelayPortCase{"-5", 60004},
                                         RelayPortCase{" 2000x", 2000},
                                         RelayPortCase{"70000", 70000},
                                         RelayPortCase{"99999999999999", 2147483647}));

TEST(MachineSettingsTest, ThePortIs60004WithoutARecord) {
  EXPECT_EQ(60004U, MachineSettings::RelayPort());
}

TEST(MachineSettingsTest, AnUnknownNameHasNoSettings) {
  EXPECT_FALSE(MachineSettings().SettingsOf("A").has_value());
}

TEST(MachineSettingsTest, UnknownSettingWordsAreUsedAs0) {
  World::Get().configuration["A"] = {"9600 ", "5", "None", "3", "xonxoff"};
  const SerialSettings settings = MachineSettings().SettingsOf("A").value();
  EXPECT_EQ(0U, settings.baudRate);
  EXPECT_EQ(0U, settings.dataBits);
  EXPECT_EQ(0U, settings.parity);
  EXPECT_EQ(0U, settings.stopBits);
  EXPECT_EQ(0U, settings.flowControl);
}

// The stop cancels a thread that does not end. Inside the library it would leave a file open, or
// end the process from a destructor.
TEST(MachineSettingsTest, APortIsLookedUpWithCancellationPutOff) {
  (void)MachineSettings().SettingsOf("A");
  EXPECT_EQ(PTHREAD_CANCEL_DISABLE, World::Get().cancelState);
}

}  // namespace
