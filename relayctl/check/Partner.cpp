// SPDX-License-Identifier: MIT
#include "check/Partner.h"

#include <algorithm>
#include <utility>

#include "relay/Text.h"
#include "serve/Provocation.h"

namespace {

using PartnerStep = RecordedStep::Kind;

constexpr size_t kMostShownOfRest = 40;

bool IsOfData(const RecordedStep& step) {
  return step.kind == PartnerStep::kTakes || step.kind == PartnerStep::kGives;
}

}  // namespace

Partner::Partner(std::optional<std::vector<RecordedStep>> deviceSteps, Gives giver, Refuses refuser)
    : steps(std::move(deviceSteps)),
      gives(std::move(giver)),
      refuses(std::move(refuser)),
      done(steps ? steps->size() : 0) {}

void Partner::LinkBegins() {
  next = 0;
  taken.clear();
  if (steps) {
    Advance();
  }
}

// One that opens in another way than was recorded meets the recording where it opens next.
void Partner::Opened() {
  wasOpened = true;
  if (!steps) {
    return;
  }
  taken.clear();
  const auto isOpen = [](const RecordedStep& step) { return step.kind == PartnerStep::kOpened; };
  auto found =
      std::find_if(steps->begin() + static_cast<std::ptrdiff_t>(next), steps->end(), isOpen);
  found = found != steps->end() ? found : std::find_if(steps->begin(), steps->end(), isOpen);
  if (found != steps->end()) {
    next = static_cast<size_t>(found - steps->begin()) + 1;
    Advance();
  }
}

// Of all that can be provoked, only refusals: nothing else belongs to the conversation.
void Partner::Advance() {
  for (; next < steps->size(); ++next) {
    const RecordedStep& step = (*steps)[next];
    if (step.kind == PartnerStep::kGives) {
      done[next] = true;
      lastGiven = next;
      gives(step.text);
    } else if (step.kind == PartnerStep::kProvokes) {
      const Provocation what = Provocation::FromText(step.text);
      if (what.kind == Provocation::Kind::kStatus) {
        refuses(what.status);
      }
    } else {
      return;
    }
  }
}

// Whether it is the beginning of what is to come next.
bool Partner::IsExpected() const {
  const auto found =
      std::find_if(steps->begin() + static_cast<std::ptrdiff_t>(next), steps->end(),
                   [](const RecordedStep& step) { return step.kind == PartnerStep::kTakes; });
  return found != steps->end() && found->text.size() > taken.size() &&
         found->text.starts_with(taken);
}

// The nearest step ahead, else the first one.
std::optional<size_t> Partner::Fitting() const {
  for (size_t i = 0; i < steps->size(); ++i) {
    const size_t index = (next + i) % steps->size();
    const RecordedStep& step = (*steps)[index];
    if (step.kind == PartnerStep::kTakes && taken.starts_with(step.text)) {
      return index;
    }
  }
  return std::nullopt;
}

bool Partner::MayStillFit() const {
  return std::any_of(steps->begin(), steps->end(), [this](const RecordedStep& step) {
    return step.kind == PartnerStep::kTakes && step.text.starts_with(taken);
  });
}

void Partner::Take(std::string_view bytes) {
  if (!steps) {
    gives(std::string(bytes));
    return;
  }
  taken += bytes;
  while (!taken.empty() && !IsExpected()) {
    const auto step = Fitting();
    if (!step) {
      if (!MayStillFit()) {
        strange += std::exchange(taken, {});
      }
      return;
    }
    taken.erase(0, (*steps)[*step].text.size());
    done[*step] = true;
    next = *step + 1;
    Advance();
  }
}

void Partner::LoseLast() {
  if (lastGiven) {
    done[*lastGiven] = false;
  }
}

bool Partner::WasAtEnd() const {
  if (!steps) {
    return true;
  }
  const auto last = std::find_if(steps->rbegin(), steps->rend(), IsOfData);
  if (last != steps->rend()) {
    return done[static_cast<size_t>(steps->rend() - last) - 1];
  }
  const bool isOpened = std::any_of(steps->begin(), steps->end(), [](const RecordedStep& step) {
    return step.kind == PartnerStep::kOpened;
  });
  return wasOpened || !isOpened;
}

std::string Partner::Rest() const {
  const auto wanted =
      std::find_if(steps->begin() + static_cast<std::ptrdiff_t>(next), steps->end(),
                   [](const RecordedStep& step) {
                     return step.kind == PartnerStep::kTakes || step.kind == PartnerStep::kOpened;
                   });
  std::string text = wanted == steps->end() ? "nothing was to come"
                     : wanted->kind == PartnerStep::kOpened
                         ? "an open was to come"
                         : relay::Quote(wanted->text.substr(0, kMostShownOfRest)) + " was to come";
  const std::string other = strange + taken;
  return other.empty()
             ? text
             : text + ", and " + relay::Quote(other.substr(0, kMostShownOfRest)) + " came";
}
