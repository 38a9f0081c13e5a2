// SPDX-License-Identifier: MIT
#include "simulation/Schedule.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <concepts>

#include "simulation/Kernel.h"

namespace simulation {
namespace {

constexpr std::array<std::string_view, 3> kVerbs = {"runs", "stalls", "draws"};  // by kind

std::string TextOf(const Deviation& deviation) {
  const bool isStall = deviation.place.kind == Deviation::kStalls;
  return std::to_string(deviation.place.thread) + "." + std::to_string(deviation.place.count) +
         ":" + std::string(kVerbs[deviation.place.kind]) +
         std::to_string(isStall ? deviation.value / kMillisecond : deviation.value);
}

// Takes it from the text's beginning.
bool Take(std::string_view& text, std::string_view expected) {
  const bool isThere = text.starts_with(expected);
  text.remove_prefix(isThere ? expected.size() : 0);
  return isThere;
}

template <std::integral Number>
bool Take(std::string_view& text, Number& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  text.remove_prefix(static_cast<size_t>(end - text.data()));
  return error == std::errc();
}

bool Take(std::string_view& text, Deviation::Kind& kind) {
  for (size_t i = 0; i < kVerbs.size(); ++i) {
    if (Take(text, kVerbs[i])) {
      kind = static_cast<Deviation::Kind>(i);
      return true;
    }
  }
  return false;
}

bool Take(std::string_view& text, Deviation& deviation) {
  Deviation::Place& place = deviation.place;
  if (!Take(text, place.thread) || !Take(text, ".") || !Take(text, place.count) ||
      !Take(text, ":") || !Take(text, place.kind) || !Take(text, deviation.value)) {
    return false;
  }
  if (place.kind == Deviation::kStalls) {
    deviation.value *= kMillisecond;
  }
  return true;
}

auto FindIn(const std::vector<Thread*>& ready, int64_t number) {
  return std::find_if(ready.begin(), ready.end(),
                      [number](const Thread* thread) { return thread->number == number; });
}

}  // namespace

std::string TextOf(const Schedule& schedule) {
  std::string text;
  for (const Deviation& deviation : schedule) {
    text += (text.empty() ? "" : ",") + TextOf(deviation);
  }
  return text.empty() ? "plain" : text;
}

std::optional<Schedule> ScheduleFrom(std::string_view text) {
  Schedule schedule;
  if (text == "plain") {
    return schedule;
  }
  do {
    if (!Take(text, schedule.emplace_back())) {
      return std::nullopt;
    }
  } while (Take(text, ","));
  return text.empty() ? std::optional(schedule) : std::nullopt;
}

Deviation::Place PlainCourse::Come(Deviation::Kind kind) {
  const int thread = Kernel::Running()->Current().number;
  return {kind, thread, ++counts[{kind, thread}]};
}

Thread* PlainCourse::PlainNext(const std::vector<Thread*>& ready) const {
  const auto goesOn = FindIn(ready, last);
  if (goesOn == ready.end()) {
    return ready.front();
  }
  if (alone < kSpinning) {
    return *goesOn;
  }
  return goesOn + 1 == ready.end() ? ready.front() : goesOn[1];
}

Thread* PlainCourse::Goes(Thread* next, const std::vector<Thread*>& ready) {
  if (next->number != last) {
    alone = 0;
  } else if (ready.size() > 1) {  // another one may wait for a lock at every second point
    ++alone;
  }
  last = next->number;
  return next;
}

int64_t PlainCourse::Stall(const Thread& /*running*/) { return 0; }

Thread* PlainCourse::Next(const std::vector<Thread*>& ready) {
  return Goes(PlainNext(ready), ready);
}

uint64_t PlainCourse::Draw(uint64_t count) { return count / 2; }

Replay::Replay(const Schedule& schedule) {
  for (const Deviation& deviation : schedule) {
    deviations.emplace(deviation.place, deviation.value);
  }
}

int64_t Replay::At(const Deviation::Place& place, int64_t plain) const {
  const auto found = deviations.find(place);
  return found == deviations.end() ? plain : found->second;
}

int64_t Replay::Stall(const Thread& /*running*/) { return At(Come(Deviation::kStalls), 0); }

Thread* Replay::Next(const std::vector<Thread*>& ready) {
  Thread* const plain = PlainNext(ready);
  if (ready.size() == 1) {
    return Goes(plain, ready);
  }
  const int64_t wanted = At(Come(Deviation::kRuns), plain->number);
  const auto found = FindIn(ready, wanted);
  return Goes(found == ready.end() ? plain : *found, ready);
}

uint64_t Replay::Draw(uint64_t count) {
  const auto plain = static_cast<int64_t>(PlainCourse::Draw(count));
  const auto drawn = static_cast<uint64_t>(At(Come(Deviation::kDraws), plain));
  return std::min(drawn, count - 1);
}

int64_t Recorder::Record(const Deviation::Place& place, int64_t plain, int64_t decided) {
  if (decided != plain) {
    recorded.push_back({place, decided});
  }
  return decided;
}

int64_t Recorder::Stall(const Thread& thread) {
  return Record(Come(Deviation::kStalls), 0, inner.Stall(thread));
}

Thread* Recorder::Next(const std::vector<Thread*>& ready) {
  Thread* const next = inner.Next(ready);
  if (ready.size() > 1) {
    (void)Record(Come(Deviation::kRuns), PlainNext(ready)->number, next->number);
  }
  return Goes(next, ready);
}

uint64_t Recorder::Draw(uint64_t count) {
  const auto plain = static_cast<int64_t>(PlainCourse::Draw(count));
  const auto drawn = static_cast<int64_t>(inner.Draw(count));
  return static_cast<uint64_t>(Record(Come(Deviation::kDraws), plain, drawn));
}

}  // namespace simulation
