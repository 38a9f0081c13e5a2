// SPDX-License-Identifier: MIT
// How the cases for every relay service are judged; `tried` are the trials of the case, or, where
// it has none of its own, all.
#pragma once

#include <vector>

#include "check/Cases.h"

Judgement JudgeConnects(const Undisturbed& plain, const std::vector<Tried>& tried);
Judgement JudgeForm(const Undisturbed& plain, const std::vector<Tried>& tried);
Judgement JudgeLength(const Undisturbed& plain, const std::vector<Tried>& tried);
Judgement JudgeByName(const Undisturbed& plain, const std::vector<Tried>& tried);
Judgement JudgeBeforeAnswers(const Undisturbed& plain, const std::vector<Tried>& tried);
Judgement JudgeRefusedOpen(const Undisturbed& plain, const std::vector<Tried>& tried);
Judgement JudgeRefusedClose(const Undisturbed& plain, const std::vector<Tried>& tried);
Judgement JudgeReading(const Undisturbed& plain, const std::vector<Tried>& tried);
Judgement JudgeReadingWhileSending(const Undisturbed& plain, const std::vector<Tried>& tried);
Judgement JudgeUnanswered(const Undisturbed& plain, const std::vector<Tried>& tried);
Judgement JudgeDeaf(const Undisturbed& plain, const std::vector<Tried>& tried);
Judgement JudgePauses(const Undisturbed& plain, const std::vector<Tried>& tried);
Judgement JudgeAlone(const Undisturbed& plain, const std::vector<Tried>& tried);
Judgement JudgeAcknowledgements(const Undisturbed& plain, const std::vector<Tried>& tried);
