// SPDX-License-Identifier: MIT
#include "check/GenericJudges.h"

#include <algorithm>
#include <set>
#include <string>

namespace {

using relay::Millis;

constexpr size_t kMuch = size_t{256} << 10;  // more than the buffers between take
constexpr size_t kMostTriesPerSecond = 50;
constexpr Millis kLateAcknowledgement{20};

}  // namespace

Judgement JudgeConnects(const Undisturbed& plain, const std::vector<Tried>& /*tried*/) {
  const std::string problem = plain.Problem();
  std::string ports;
  for (const relay::Port& port :
       problem.empty() ? plain.seen.asked.front().Opened() : std::set<relay::Port>()) {
    ports += (ports.empty() ? "it opens " : ", ") + port.Text();
  }
  return problem.empty() ? Passed(ports.empty() ? "it opens no port" : ports) : Failed(problem);
}

Judgement JudgeForm(const Undisturbed& plain, const std::vector<Tried>& tried) {
  for (const Tried& one : tried) {
    if (!one.seen.refused.empty()) {
      return Failed(one.how.name + ": " + one.seen.refused.front());
    }
  }
  return plain.seen.asked.front().Count() == 0 ? Skipped("it sent none")
                                               : Passed("all that it sent in all trials");
}

Judgement JudgeLength(const Undisturbed& plain, const std::vector<Tried>& tried) {
  for (const Tried& one : tried) {
    if (!one.seen.badLength.empty()) {
      return Failed(one.how.name + ": " + one.seen.badLength);
    }
  }
  return JudgeForm(plain, {});
}

Judgement JudgeByName(const Undisturbed& plain, const std::vector<Tried>& tried) {
  for (const Tried& one : tried) {
    if (!one.seen.absentIds.empty()) {
      return Failed(one.how.name + ": a close or data for " + one.seen.absentIds);
    }
  }
  return JudgeForm(plain, {});
}

Judgement JudgeBeforeAnswers(const Undisturbed& plain, const std::vector<Tried>& tried) {
  const auto fault = [](const Undisturbed& known, const Seen& seen) -> std::string {
    Undisturbed loose = known;  // its own port's bytes may make it ask for more
    loose.isSteady = false;
    return DifferenceOf(loose, seen);
  };
  return JudgeEach(plain, tried, fault, "it had no port open while it waited for an answer");
}

Judgement JudgeRefusedOpen(const Undisturbed& plain, const std::vector<Tried>& tried) {
  if (std::any_of(tried.begin(), tried.end(), [](const Tried& one) { return one.seen.isAhead; })) {
    return Skipped("it sends data without waiting for the answer");
  }
  const auto fault = [](const Undisturbed&, const Seen& seen) -> std::string {
    return seen.dataToClosed > 0            ? "it sends data to the port all the same"
           : seen.status.value_or(0) >= 128 ? "it ended with status " + std::to_string(*seen.status)
                                            : "";
  };
  return JudgeEach(plain, tried, fault, "it opens no port");
}

Judgement JudgeRefusedClose(const Undisturbed& plain, const std::vector<Tried>& tried) {
  const auto fault = [](const Undisturbed& known, const Seen& seen) -> std::string {
    return seen.status && !known.runsOnce   ? "it ended with status " + std::to_string(*seen.status)
           : seen.status.value_or(0) >= 128 ? "it was ended by a signal"
                                            : "";
  };
  return JudgeEach(plain, tried, fault, "it closes no port");
}

Judgement JudgeReading(const Undisturbed& plain, const std::vector<Tried>& tried) {
  const auto fault = [](const Undisturbed& known, const Seen& seen) -> std::string {
    return seen.isStuck ? "it does not read" : DifferenceOf(known, seen);
  };
  return JudgeEach(plain, tried, fault, "it waited for no answer");
}

Judgement JudgeReadingWhileSending(const Undisturbed& plain, const std::vector<Tried>& /*tried*/) {
  if (plain.seen.isStuck) {
    return Failed("it stopped for good, with answers that it did not read");
  }
  const size_t count = plain.seen.asked.front().DataCount();
  return count < kMuch ? Skipped("it sends " + std::to_string(count) +
                                 " bytes of data, which the buffers between take")
                       : Passed(std::to_string(count) + " bytes of data");
}

Judgement JudgeUnanswered(const Undisturbed& /*plain*/, const std::vector<Tried>& tried) {
  const Seen& seen = tried.front().seen;
  if (seen.disturbed == 0) {
    return Skipped("it opens no port");
  }
  if (seen.status) {
    return {Verdict::kRemark, "it ends, with status " + std::to_string(*seen.status)};
  }
  if (seen.leaves > 0) {
    return {Verdict::kRemark,
            "it ends the link after " + std::to_string(seen.leftAfter).substr(0, 4) + " s"};
  }
  return {Verdict::kRemark, "it waits, as long as was looked"};
}

Judgement JudgeDeaf(const Undisturbed& plain, const std::vector<Tried>& tried) {
  const auto fault = [](const Undisturbed& known, const Seen& seen) -> std::string {
    const bool hasEnded = known.runsOnce && seen.status && seen.asked.empty();
    return hasEnded ? "" : DifferenceOf(known, seen);
  };
  return JudgeEach(plain, tried, fault, "it did not connect");
}

Judgement JudgePauses(const Undisturbed& plain, const std::vector<Tried>& tried) {
  const size_t deaf = tried.front().seen.tries;
  const size_t alone = tried.back().seen.alone.perSecond;
  const size_t most = std::max(deaf, alone);
  if (most > kMostTriesPerSecond) {
    return Failed(std::to_string(most) + " tries in a second");
  }
  if (deaf < 2 && alone < 2) {
    return Skipped(plain.runsOnce ? "it tries once" : "it did not try twice in a second");
  }
  return Passed(std::to_string(most) + " tries in a second");
}

Judgement JudgeAlone(const Undisturbed& /*plain*/, const std::vector<Tried>& tried) {
  const SelfLook::Result& alone = tried.front().seen.alone;
  if (!alone.problem.empty()) {
    return Skipped("this user cannot have " + alone.problem);
  }
  if (alone.isToItself) {
    return Failed("it is connected to itself, in a network with few local ports");
  }
  return alone.tries == 0 ? Skipped("it did not try to connect where nobody listens")
                          : Passed(std::to_string(alone.tries) + " tries where nobody listens");
}

Judgement JudgeAcknowledgements(const Undisturbed& /*plain*/, const std::vector<Tried>& tried) {
  const auto wait = tried.front().seen.wait;
  if (!wait) {
    return Skipped("it was not to be measured");
  }
  const auto millis = std::chrono::duration_cast<Millis>(*wait).count();
  return *wait < kLateAcknowledgement
             ? Passed("a second notification waits " + std::to_string(millis) + " ms for it")
             : Judgement{Verdict::kRemark, "a second notification waits " + std::to_string(millis) +
                                               " ms for it: set TCP_QUICKACK"};
}
