// SPDX-License-Identifier: MIT
#include "serve/RecordedDevice.h"

#include <algorithm>
#include <utility>

#include "link/Loop.h"
#include "relay/Text.h"

namespace {

using relay::Clock;
using Step = RecordedStep::Kind;

// Bytes that come before the recording wants them.
constexpr size_t kMostAhead = 65536;

}  // namespace

RecordedSide::RecordedSide(std::vector<RecordedStep> recordedSteps, bool isPlayedFast)
    : steps(std::move(recordedSteps)), isFast(isPlayedFast) {}

void RecordedSide::PlugIn(const ServedDevice::Line& portLine) {
  isAway = false;
  if (!line) {
    line.emplace(portLine);
    line->loop.When([this] { return isAway ? Due() : std::nullopt; },
                    [this] {
                      Advance();
                      line->wake();
                    });
    since = Clock::now();
    Advance();
  }
}

// What the recording does next by itself, whatever the relay service does: the end when nothing.
size_t RecordedSide::NextToDo() const {
  const auto found =
      std::find_if(steps.begin() + static_cast<std::ptrdiff_t>(next), steps.end(),
                   [](const RecordedStep& step) { return step.kind == Step::kProvokes; });
  return static_cast<size_t>(found - steps.begin());
}

std::optional<Clock::time_point> RecordedSide::Due() const {
  const size_t toDo = isAway ? NextToDo() : next;
  if (toDo == steps.size() || (!isAway && steps[toDo].kind != Step::kGives)) {
    return std::nullopt;
  }
  std::chrono::microseconds pause{0};
  for (size_t i = next; i <= toDo && !isFast; ++i) {
    pause += steps[i].pause;
  }
  return since + pause;
}

void RecordedSide::Done() {
  ++next;
  since = Clock::now();
  given = 0;
}

void RecordedSide::Advance() {
  while (next < steps.size()) {
    if (isAway) {
      const auto due = Due();
      if (!due || *due > Clock::now()) {
        return;
      }
      next = NextToDo();
    }
    const RecordedStep& step = steps[next];
    if (step.kind == Step::kProvokes) {
      isAway = step.text.starts_with("unplug") || (isAway && !step.text.starts_with("plug"));
      Done();
      line->provoke(step.text);
    } else if (step.kind != Step::kTakes || !HasTaken()) {
      return;
    }
  }
}

// Other bytes than those recorded count like them, and are told.
bool RecordedSide::HasTaken() {
  const std::string& wanted = steps[next].text;
  if (taken.Size() < wanted.size()) {
    return false;
  }
  const std::string_view came = taken.View().substr(0, wanted.size());
  if (came != wanted && !std::exchange(isDifferent, true)) {
    line->tell(line->port + ": recorded was " + relay::Quote(wanted) + "; came " +
               relay::Quote(came));
  }
  taken.Take(wanted.size());
  Done();
  return true;
}

// A relay service that does something else than the recorded one meets the recording where it does
// the same again.
void RecordedSide::Happens(Step what) {
  const auto isIt = [what](const RecordedStep& step) { return step.kind == what; };
  auto found = std::find_if(steps.begin() + static_cast<std::ptrdiff_t>(next), steps.end(), isIt);
  if (found == steps.end() && what == Step::kOpened) {
    found = std::find_if(steps.begin(), steps.end(), isIt);
  }
  taken.Clear();
  if (found != steps.end()) {
    next = static_cast<size_t>(found - steps.begin());
    Done();
    Advance();
  }
}

// Behind the recording's end all is taken.
size_t RecordedSide::Take(std::string_view bytes) {
  const bool isWanted =
      std::any_of(steps.begin() + static_cast<std::ptrdiff_t>(next), steps.end(),
                  [](const RecordedStep& step) { return step.kind == Step::kTakes; });
  if (!isWanted) {
    return bytes.size();
  }
  const size_t count = std::min(bytes.size(), kMostAhead - taken.Size());
  taken.Add(bytes.substr(0, count));
  Advance();
  return count;
}

std::string RecordedSide::Give(size_t most) {
  const auto due = isAway ? std::nullopt : Due();
  if (!due || *due > Clock::now()) {
    return "";
  }
  std::string bytes = steps[next].text.substr(given, most);
  given += bytes.size();
  if (given == steps[next].text.size()) {
    Done();
    Advance();
  }
  return bytes;
}

RecordedDevice::RecordedDevice(const Line& line, std::shared_ptr<RecordedSide> recordedSide)
    : side(std::move(recordedSide)) {
  side->PlugIn(line);
}
