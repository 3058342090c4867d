// SPDX-License-Identifier: Apache-2.0
#include "Tests/OverStandIn/Faults/FaultSteps.hpp"

#include <utility>

namespace lumaret::tests::faults {
namespace {

/// The run's phases follow one another; each begins with a call that tells it.
class PhaseOf {
 public:
  Phase operator()(const std::string& function, const std::string& call) {
    if (function == "SecItemCopyMatching") {
      phase_ = isLoaded_ ? Phase::authorizing : Phase::loading;
      isLoaded_ = true;
    } else if (function == "CFPreferencesCopyValue") {
      phase_ = phase_ == Phase::writingRules ? Phase::verifyingRules : Phase::readingRules;
    } else if (function == "CFPreferencesSetValue") {
      phase_ = Phase::writingRules;
    } else if (function.starts_with("CFURL") || function.starts_with("NS")) {
      phase_ = call.ends_with(", awaited)") ? Phase::refreshing : Phase::opening;
    }
    return phase_;
  }

 private:
  Phase phase_ = Phase::loading;
  bool isLoaded_ = false;
};

}  // namespace

std::vector<Step> steps(const std::vector<std::string>& trace) {
  std::vector<Step> steps;
  PhaseOf phaseOf;
  for (const std::string& call : trace) {
    Step step;
    const std::size_t end = call.find('(');
    step.function = call.substr(0, end);
    step.argument = call.substr(end + 1, call.find_first_of(",)", end) - end - 1);
    step.phase = phaseOf(step.function, call);
    step.number = 1;
    for (const Step& before : steps) {
      const bool isSameFunction = before.function == step.function;
      step.number += isSameFunction ? 1 : 0;
      step.equalBefore +=
          isSameFunction && before.argument == step.argument && before.phase == step.phase ? 1 : 0;
    }
    steps.push_back(std::move(step));
  }
  return steps;
}

}  // namespace lumaret::tests::faults
