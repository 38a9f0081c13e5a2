// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <random>
#include <vector>

namespace simulation {

struct Thread;

// Decides at each point who goes on. A run is its chooser's decisions and nothing else.
class Chooser {
 public:
  Chooser() = default;
  virtual ~Chooser() = default;
  Chooser(const Chooser&) = delete;
  Chooser& operator=(const Chooser&) = delete;

  // Asked at each point: the nanoseconds for which `running` is kept from its processor, as others
  // of more importance or a slow disk would. Mostly 0.
  virtual int64_t Stall(const Thread& running) = 0;

  // One of `ready`, which is not empty.
  virtual Thread* Next(const std::vector<Thread*>& ready) = 0;

  // Below `count`: what the machine does where it has a choice, as how many bytes come at once.
  virtual uint64_t Draw(uint64_t count) = 0;

  // True with the probability 1 / `count`.
  bool OneIn(uint64_t count) { return Draw(count) == 0; }

 protected:
  // Below what the service has patience for, or beyond it.
  int64_t SomeTime();
};

// Anybody, every time.
class RandomWalk : public Chooser {
 public:
  explicit RandomWalk(uint64_t seed) : generator(seed) {}
  int64_t Stall(const Thread& running) override;
  Thread* Next(const std::vector<Thread*>& ready) override;
  uint64_t Draw(uint64_t count) override;

 private:
  std::mt19937_64 generator;
};

// The same among threads that all have a processor.
class CalmWalk : public RandomWalk {
 public:
  using RandomWalk::RandomWalk;
  int64_t Stall(const Thread& /*running*/) override { return 0; }
};

// Probabilistic concurrency testing: each thread has a priority, the highest that can go on does,
// and at `depth` - 1 points drawn at the start the running one falls below all others, or stalls. A
// fault that
// needs `depth` orders among `points` points of `n` threads is met with a probability of at least
// 1 / (n * points ^ (depth - 1)).
class Priorities : public Chooser {
 public:
  Priorities(uint64_t seed, int depth, uint64_t points);
  int64_t Stall(const Thread& running) override;
  Thread* Next(const std::vector<Thread*>& ready) override;
  uint64_t Draw(uint64_t count) override;

 private:
  int64_t& PriorityOf(const Thread& thread);
  void Lower(const Thread& thread);

  // A thread that goes on so long while others could, spins: it waits for one of them.
  static constexpr int kSpinning = 1000;

  std::mt19937_64 generator;
  std::vector<uint64_t> changes;    // of priority, the next one last
  std::vector<int64_t> priorities;  // by the thread's number
  int64_t lowest = 0;
  uint64_t point = 0;
  int last = 0;   // the number of who ran
  int alone = 0;  // points since another one went on
};

// The one that `seed` stands for: every sixth is a random walk, the others are of depth 1 to 5
// among few, some or many points.
std::unique_ptr<Chooser> ChooserOf(uint64_t seed);

}  // namespace simulation
