// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "check/Cases.h"
#include "check/Strays.h"
#include "check/Trials.h"

struct CheckOptions {
  std::vector<std::string> command;     // the program under test, and its arguments
  std::vector<std::string> recordings;  // files
  std::vector<std::string> only;        // names of cases; empty: all
  unsigned listen = 0;                  // 0: each trial has a free port of its own
  unsigned variants = 200;              // of a case, at most
  unsigned jobs = 8;                    // trials at a time
  double quiet = 0.5;                   // seconds
  double limit = 5;                     // seconds, for one trial without progress
};

struct CaseResult {
  std::string group;  // "every relay service", or the recording's file
  std::string name;
  std::string sentence;  // of docs/protocol.md
  Judgement judgement;
};

// Tries a relay service: first it is left alone, and what it asks for is what it is held to; then
// all trials of all cases are carried out, and each case is judged.
class Checker {
 public:
  // Throws kUsage for a name in `only` that no case has and for a recording with a mistake, kSystem
  // for a file that cannot be read.
  Checker(Loop& loop, const CheckOptions& checkOptions);

  // Throws kSystem when the program cannot be started. A signal that asks for the end has it return
  // early, with nothing; Ended tells its number.
  std::vector<CaseResult> Run();
  int Ended() const { return trials.Ended(); }

 private:
  struct Entry {
    const CheckCase* row = nullptr;
    bool isWanted = true;  // else only others need it
    std::vector<Tried> tried;
    Judgement judgement;
  };
  struct Group {
    std::string name;
    std::shared_ptr<const DeviceSides> sides;
    Undisturbed plain;
    std::vector<Entry> entries;
  };

  void AddGroup(const std::string& name, const std::vector<CheckCase>& cases,
                std::shared_ptr<const DeviceSides> sides);
  TrialPlan PlanOf(const Group& group, const Disturbance& how) const;
  void LeaveAlone();
  void TryAll();
  void Judge(Group& group, const std::vector<Tried>& all) const;

  const CheckOptions options;
  const Strays strays;  // before the trials: it ends behind them
  Trials trials;
  std::vector<Group> groups;
};
