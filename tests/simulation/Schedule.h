// SPDX-License-Identifier: MIT
// A run in words: how its decisions differ from those of the plain course.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "simulation/Chooser.h"

namespace simulation {

// One decision that was another one than the plain course's: "3.17:runs5" is the 17th time that
// thread 3 came to where somebody else could go on, and thread 5 did. "3.17:stalls20" keeps it from
// its processor for 20 ms, "3.17:draws4" is what chance gave it.
struct Deviation {
  enum Kind { kRuns, kStalls, kDraws };
  struct Place {
    Kind kind = kRuns;
    int thread = 0;
    uint64_t count = 0;  // of the decisions of its kind that the thread came to, from 1 on
    bool operator<(const Place& other) const {
      return std::tie(kind, thread, count) < std::tie(other.kind, other.thread, other.count);
    }
  };
  Place place;
  int64_t value = 0;
};

using Schedule = std::vector<Deviation>;  // in the order in which they come

std::string TextOf(const Schedule& schedule);  // "plain" where nothing differs
std::optional<Schedule> ScheduleFrom(std::string_view text);

// The plain course: whoever runs goes on until it waits, then the first one that can. Nobody
// stalls, and chance gives the middle.
class PlainCourse : public Chooser {
 public:
  int64_t Stall(const Thread& running) override;
  Thread* Next(const std::vector<Thread*>& ready) override;
  uint64_t Draw(uint64_t count) override;

 protected:
  // Counts the decision that the running thread has come to.
  Deviation::Place Come(Deviation::Kind kind);
  Thread* PlainNext(const std::vector<Thread*>& ready) const;
  Thread* Goes(Thread* next, const std::vector<Thread*>& ready);

 private:
  // A thread that goes on so long while others could, spins: it waits for one of them.
  static constexpr int kSpinning = 1000;

  std::map<std::pair<Deviation::Kind, int>, uint64_t> counts;  // by kind and thread
  int last = 0;                                                // the number of who ran
  int alone = 0;                                               // points since another one went on
};

// Plays a schedule. What does not fit any more (a thread that cannot go on) goes the plain way.
class Replay : public PlainCourse {
 public:
  explicit Replay(const Schedule& schedule);
  int64_t Stall(const Thread& running) override;
  Thread* Next(const std::vector<Thread*>& ready) override;
  uint64_t Draw(uint64_t count) override;

 private:
  int64_t At(const Deviation::Place& place, int64_t plain) const;

  std::map<Deviation::Place, int64_t> deviations;
};

// Writes down how another one decides.
class Recorder : public PlainCourse {
 public:
  explicit Recorder(Chooser& decides) : inner(decides) {}
  int64_t Stall(const Thread& thread) override;
  Thread* Next(const std::vector<Thread*>& ready) override;
  uint64_t Draw(uint64_t count) override;

  const Schedule& Recorded() const { return recorded; }

 private:
  int64_t Record(const Deviation::Place& place, int64_t plain, int64_t decided);

  Chooser& inner;
  Schedule recorded;
};

}  // namespace simulation
