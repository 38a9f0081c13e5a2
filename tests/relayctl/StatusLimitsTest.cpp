// SPDX-License-Identifier: MIT
// A receive thread that cannot be made, as there is no room for its stack. A sanitizer's own memory
// leaves no such room to begin with.
#include <filesystem>

#include "relayctl/StatusSituation.h"

namespace {

class StatusLimitsTest : public StatusSituation {
 protected:
  // With room for so many stacks of 1 GB.
  void StartWithStacks(int count) {
    const std::string program =
        std::filesystem::read_symlink("/proc/self/exe").parent_path() / "SerialPortHandler";
    const std::string most = std::to_string(count * 1000000 + 900000);
    workplace::WriteWhole("/tmp/e2e/start", "ulimit -s 1000000; ulimit -v " + most +
                                                "; export KXLOGGER_FILE=/tmp/e2e/log; exec " +
                                                Quoted(program));
    device = std::make_unique<Device>();
    own = std::make_unique<Background>("bash /tmp/e2e/start");
    ASSERT_TRUE(own->Prints("[LISTEN]IP:")) << own->Output();
    relay = std::make_unique<Relay>();
    ASSERT_TRUE(own->Prints("[ACCEPT]IP:"));
  }

  std::unique_ptr<Background> own;
};

TEST_F(StatusLimitsTest, NamesThePeerThatNobodyReceivesFrom) {
  StartWithStacks(0);
  BothSay("no thread receives from the peer");
}

TEST_F(StatusLimitsTest, NamesTheLineThatNobodyReceivesFrom) {
  StartWithStacks(1);
  ASSERT_EQ(Wire(kPort0Opened), relay->Answer(kOpenPort0));
  BothSay("no thread receives from a port");
}

}  // namespace
