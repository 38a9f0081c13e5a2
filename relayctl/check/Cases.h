// SPDX-License-Identifier: MIT
// What a relay service is tried with. Each case has a name, and the sentence of docs/protocol.md
// that is at stake; a test holds both to the documents.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "check/Trial.h"

enum class Verdict { kPassed, kFailed, kSkipped, kRemark };

struct Judgement {
  Verdict verdict = Verdict::kPassed;
  std::string text;  // what was seen, or why there was nothing to be seen
};

// The program as it is when nothing is done to it.
struct Undisturbed {
  Seen seen;
  bool isSteady = false;  // twice it has asked for the same
  bool runsOnce = false;  // it has ended by itself, with status 0

  // Why nothing can be told of it; empty: something can.
  std::string Problem() const;

  // Why nothing can be tried with it.
  std::string Obstacle() const;
};

// One that was carried out.
struct Tried {
  Disturbance how;
  Seen seen;
};

struct CheckCase {
  const char* name;
  const char* sentence;
  const char* needs;  // another case above: without its being passed this one would tell nothing
  std::vector<Disturbance> (*variants)(
      const Undisturbed& plain);  // nullptr: it looks at all trials
  Judgement (*judge)(const Undisturbed& plain, const std::vector<Tried>& tried);
};

// For every relay service.
const std::vector<CheckCase>& GenericCases();

// For one that talks with the device of a recording.
const std::vector<CheckCase>& RecordingCases();

// Shared by the tables.

Judgement Passed(const std::string& text);
Judgement Failed(const std::string& text);
Judgement Skipped(const std::string& text);

// How it differs from the undisturbed program; empty: not at all.
std::string DifferenceOf(const Undisturbed& plain, const Seen& seen);

// The same of one whose link was broken, and which has to come back.
std::string FailureToComeBack(const Undisturbed& plain, const Seen& seen);

// Of all variants: the first that failed is told, and how many. Those in which the disturbance has
// not happened do not count; when it never has, `never` tells why.
Judgement JudgeEach(const Undisturbed& plain, const std::vector<Tried>& tried,
                    std::string (*fault)(const Undisturbed& plain, const Seen& seen),
                    const std::string& never);

Judgement JudgeSame(const Undisturbed& plain, const std::vector<Tried>& tried);
Judgement JudgeComesBack(const Undisturbed& plain, const std::vector<Tried>& tried);

// A notification of a port that the program has not opened, of so many bytes in all.
std::string StrangersPacket(const Undisturbed& plain, size_t size);
std::string NumberedPacket();

// Breaks at each byte of each packet.
std::vector<Disturbance> Breaks(const Undisturbed& plain, Disturbance::Ending ending);

// "packet 2 (reply to open #X: status 0)", counted from 1.
std::string PlaceText(const Undisturbed& plain, size_t packet);
