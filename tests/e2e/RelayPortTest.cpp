// SPDX-License-Identifier: MIT
// On which port the service waits for the relay.
#include <filesystem>

#include "e2e/ServiceTest.h"

namespace {

struct PortCase {
  const char* name;
  const char* text;     // of the configuration
  const char* printed;  // by the service
  uint16_t port;
};

void PrintTo(const PortCase& row, std::ostream* out) { *out << row.name; }

constexpr PortCase kPortCases[] = {
    {"Number1024", "1024", "60004", 60004},
    {"Number0", "0", "60004", 60004},
    {"NegativeNumber", "-2000", "60004", 60004},
    {"Letters", "relay", "60004", 60004},
    {"Number1025", "1025", "1025", 1025},
    {"Number65535", "65535", "65535", 65535},
    {"NumberBeforeLetters", "2000 or so", "2000", 2000},
    {"NumberAbove16Bits", "66561", "66561", 1025},  // the address takes the low 16 bits
};

class RelayPortTest : public ServiceTest, public testing::WithParamInterface<PortCase> {};

TEST_P(RelayPortTest, ListensOnTheTabledPort) {
  configuration.RelayPort(GetParam().text);
  StartService();
  Link(GetParam().port);
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
  EXPECT_EQ(
      "[LISTEN]IP:127.0.0.1(PORT:" + std::string(GetParam().printed) + ")\n[ACCEPT]IP:127.0.0.1\n",
      Service::Output());
}

INSTANTIATE_TEST_SUITE_P(Texts, RelayPortTest, testing::ValuesIn(kPortCases), NameOf<PortCase>);

TEST_F(RelayPortTest, ListensOn60004WithoutAConnectionRecord) {
  StartLinked();
  EXPECT_EQ("[LISTEN]IP:127.0.0.1(PORT:60004)\n[ACCEPT]IP:127.0.0.1\n", Service::Output());
}

TEST_F(RelayPortTest, ListensOn60004WithoutAConfigurationFile) {
  std::filesystem::remove(workplace::kConfiguration);
  StartLinked();
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
}

TEST_F(RelayPortTest, LooksThePortUpAfreshForEachLink) {
  StartLinked();
  configuration.RelayPort("1025");
  relay->Leaves();
  Link(1025);
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
  EXPECT_TRUE(Service::Prints("[LISTEN]IP:127.0.0.1(PORT:1025)\n"));
}

}  // namespace
