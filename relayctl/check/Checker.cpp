// SPDX-License-Identifier: MIT
#include "check/Checker.h"

#include <algorithm>
#include <utility>

#include "Duration.h"
#include "Input.h"
#include "relay/Error.h"
#include "relay/Text.h"

namespace {

constexpr const char* kEveryService = "every relay service";

std::shared_ptr<const DeviceSides> SidesOf(const std::string& file) {
  const std::string text = ReadAll(file);
  auto sides = std::make_shared<DeviceSides>();
  for (const std::string& port : PlayedService::Ports()) {
    std::vector<RecordedStep> steps = ReadDeviceSide(text, relay::Escape(file), port);
    if (!steps.empty()) {
      (*sides)[port] = std::move(steps);
    }
  }
  if (std::none_of(sides->begin(), sides->end(),
                   [](const auto& side) { return HasOpening(side.second); })) {
    throw relay::Error(
        relay::ErrorKind::kUsage,
        relay::Escape(file) + ": no port opens in it, so that nothing is to be reached");
  }
  return sides;
}

bool IsWanted(const std::vector<std::string>& only, const std::string& name) {
  return only.empty() || std::find(only.begin(), only.end(), name) != only.end();
}

bool IsNeeded(const std::vector<CheckCase>& cases, const std::vector<std::string>& only,
              const std::string& name) {
  return IsWanted(only, name) || std::any_of(cases.begin(), cases.end(), [&](const CheckCase& one) {
           return one.needs != nullptr && one.needs == name && IsNeeded(cases, only, one.name);
         });
}

void MustBeCases(const std::vector<std::string>& only, bool hasRecording) {
  for (const std::string& name : only) {
    const auto has = [&name](const std::vector<CheckCase>& cases) {
      return std::any_of(cases.begin(), cases.end(),
                         [&name](const CheckCase& one) { return one.name == name; });
    };
    if (!has(GenericCases()) && !has(RecordingCases())) {
      throw relay::Error(relay::ErrorKind::kUsage,
                         "--only: " + relay::Quote(name) + " is no case; --list has them all");
    }
    if (!has(GenericCases()) && !hasRecording) {
      throw relay::Error(
          relay::ErrorKind::kUsage,
          "--only: " + name + " is a case of a recording, and there is no --recording");
    }
  }
}

// So many of them, from all over.
std::vector<Disturbance> Some(const std::vector<Disturbance>& all, size_t most) {
  if (all.size() <= most) {
    return all;
  }
  std::vector<Disturbance> some;
  for (size_t i = 0; i < most; ++i) {
    some.push_back(all[most == 1 ? 0 : i * (all.size() - 1) / (most - 1)]);
  }
  return some;
}

}  // namespace

// With a recording, its device talks with the program in all cases; an echo says less.
Checker::Checker(Loop& loop, const CheckOptions& checkOptions)
    : options(checkOptions), trials(loop, options.listen != 0 ? 1 : options.jobs) {
  MustBeCases(options.only, !options.recordings.empty());
  std::vector<std::shared_ptr<const DeviceSides>> sides;
  std::transform(options.recordings.begin(), options.recordings.end(), std::back_inserter(sides),
                 SidesOf);
  AddGroup(kEveryService, GenericCases(), sides.empty() ? nullptr : sides.front());
  for (size_t i = 0; i < sides.size(); ++i) {
    AddGroup(options.recordings[i], RecordingCases(), sides[i]);
  }
}

void Checker::AddGroup(const std::string& name, const std::vector<CheckCase>& cases,
                       std::shared_ptr<const DeviceSides> sides) {
  Group group;
  group.name = name;
  group.sides = std::move(sides);
  for (const CheckCase& row : cases) {
    if (IsNeeded(cases, options.only, row.name)) {
      group.entries.push_back({&row, IsWanted(options.only, row.name), {}, {}});
    }
  }
  if (!group.entries.empty()) {
    groups.push_back(std::move(group));
  }
}

TrialPlan Checker::PlanOf(const Group& group, const Disturbance& how) const {
  TrialPlan plan;
  plan.command = options.command;
  plan.port = static_cast<uint16_t>(options.listen);
  plan.how = how;
  plan.sides = group.sides;
  plan.quiet = FromSeconds(options.quiet);
  plan.limit = FromSeconds(options.limit);
  if (!group.plain.seen.asked.empty()) {
    plan.goal = group.plain.seen.asked.front();
    plan.isSteady = group.plain.isSteady;
    plan.runsOnce = group.plain.runsOnce;
  }
  return plan;
}

// Twice, as what it asks for may be a matter of chance, and so may be, on a busy machine, whether
// it ends before it is taken for one that waits.
void Checker::LeaveAlone() {
  std::vector<TrialPlan> plans;
  for (const Group& group : groups) {
    plans.insert(plans.end(), 2, PlanOf(group, Disturbance()));
  }
  const std::vector<Seen> seen = trials.Run(plans);
  for (size_t i = 0; i < groups.size(); ++i) {
    Undisturbed& plain = groups[i].plain;
    const Seen& again = seen[2 * i + 1];
    plain.seen = seen[2 * i];
    plain.isSteady = plain.seen.asked == again.asked;
    plain.runsOnce = plain.seen.status == 0 || again.status == 0;
  }
}

void Checker::TryAll() {
  std::vector<TrialPlan> plans;
  for (Group& group : groups) {
    for (Entry& entry : group.entries) {
      if (entry.row->variants != nullptr && group.plain.Obstacle().empty()) {
        for (const Disturbance& how : Some(entry.row->variants(group.plain), options.variants)) {
          entry.tried.push_back({how, {}});
          plans.push_back(PlanOf(group, how));
        }
      }
    }
  }
  const std::vector<Seen> seen = trials.Run(plans);
  size_t index = 0;
  for (Group& group : groups) {
    for (Entry& entry : group.entries) {
      for (Tried& one : entry.tried) {
        one.seen = seen[index++];
      }
    }
  }
}

// A case without trials of its own looks at all.
void Checker::Judge(Group& group, const std::vector<Tried>& all) const {
  const std::string problem = group.plain.Problem();
  for (Entry& entry : group.entries) {
    const CheckCase& row = *entry.row;
    const std::string needs = row.needs != nullptr ? row.needs : "";
    const auto needed =
        std::find_if(group.entries.begin(), group.entries.end(),
                     [&needs](const Entry& other) { return other.row->name == needs; });
    if (row.variants != nullptr && problem.empty() && !group.plain.Obstacle().empty()) {
      entry.judgement = Skipped("undisturbed, " + group.plain.Obstacle());
    } else if (!problem.empty()) {
      entry.judgement = &entry == &group.entries.front() ? Failed("undisturbed, " + problem)
                                                         : Skipped("undisturbed, " + problem);
    } else if (needed != group.entries.end() && needed->judgement.verdict != Verdict::kPassed) {
      entry.judgement = Skipped("tells nothing without " + needs);
    } else {
      entry.judgement = row.judge(group.plain, row.variants == nullptr ? all : entry.tried);
    }
  }
}

std::vector<CaseResult> Checker::Run() {
  LeaveAlone();
  if (Ended() == 0) {
    TryAll();
  }
  std::vector<CaseResult> results;
  if (Ended() != 0) {
    return results;
  }
  std::vector<Tried> all;
  for (const Group& group : groups) {
    all.push_back({Disturbance(), group.plain.seen});
    for (const Entry& entry : group.entries) {
      all.insert(all.end(), entry.tried.begin(), entry.tried.end());
    }
  }
  for (Group& group : groups) {
    Judge(group, all);
    for (const Entry& entry : group.entries) {
      if (entry.isWanted) {
        results.push_back({group.name, entry.row->name, entry.row->sentence, entry.judgement});
      }
    }
  }
  return results;
}
