// SPDX-License-Identifier: MIT
// Each test writes in a process of its own, which an alarm ends when it waits for ever.
#include <gtest/gtest.h>
#include <time.h>
#include <unistd.h>

#include <string>

#include "Linux/StreamWriter.h"
#include "support/InChild.h"
#include "support/Terminal.h"

namespace {

enum class Owner { kSelf, kOther };

std::string NameOf(const testing::TestParamInfo<Owner>& owner) {
  return owner.param == Owner::kSelf ? "OfThisUser" : "OfAnother";
}

class StreamWriterTest : public testing::TestWithParam<Owner> {
 protected:
  // A writer to standard error, which is `stream` in this process from now on.
  static CStreamWriter& WriterTo(int stream) {
    if (GetParam() == Owner::kOther) {
      ForbidReopening(stream);
    }
    (void)dup2(stream, STDERR_FILENO);
    static CStreamWriter writer(STDERR_FILENO);
    writer.Unblock();
    return writer;
  }
};

TEST_P(StreamWriterTest, ATerminalThatNobodyReadsCostsNoProcessor) {
  EXPECT_EQ(0, InChild([] {
              const Terminal terminal;
              CStreamWriter& writer = WriterTo(terminal.NearEnd());
              for (size_t i = 0; i < 2000; ++i) {
                (void)writer.Write(std::string(i % 100, 'x') + "\n");
              }
              timespec used = {};
              (void)clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
              return used.tv_sec == 0 ? 0 : 1;
            }));
}

INSTANTIATE_TEST_SUITE_P(Stream, StreamWriterTest, testing::Values(Owner::kSelf, Owner::kOther),
                         NameOf);

}  // namespace
