// SPDX-License-Identifier: Apache-2.0
#include "Tests/OverStandIn/AppleFrameworks/Call.hpp"

#include <algorithm>
#include <iterator>

#include "Tests/OverStandIn/AppleFrameworks/MachineFile.hpp"

namespace standin {
namespace {

struct State {
  Machine machine;
  std::vector<std::string> trace;
  std::map<std::string, std::size_t> callsByFunction;
};

State& state() {
  static auto& only = *new State{readMachineFile(), {}, {}};
  return only;
}

}  // namespace

Machine& machine() { return state().machine; }

const std::vector<std::string>& trace() { return state().trace; }

std::vector<std::string> calls(std::string_view prefix) {
  std::vector<std::string> found;
  std::copy_if(trace().begin(), trace().end(), std::back_inserter(found),
               [prefix](const std::string& call) { return call.starts_with(prefix); });
  return found;
}

void startOver() {
  state() = {};
  forgetEveryObject();
}

Call::Call(const char* function, const std::string& arguments) : function_(function) {
  state().trace.push_back(std::string(function) + "(" + arguments + ")");
  const std::size_t number = ++state().callsByFunction[function];
  const auto& answers = machine().answers[function];
  const auto found = std::find_if(answers.begin(), answers.end(), [number](const Answer& answer) {
    return answer.call.value_or(number) == number;
  });
  if (found != answers.end()) {
    answer_ = &*found;
  }
}

CFTypeRef Call::instead(CFTypeRef own) const {
  if (answer_->kind == Answer::Kind::object) {
    return answer_->value ? create(*answer_->value) : nullptr;
  }
  std::vector<CFTypeRef> elements;
  if (own != nullptr) {
    for (const CFTypeRef element : elementsOf(own, function_)) {
      retain(element, function_);
      elements.push_back(element);
    }
    release(own, function_);
  }
  if (answer_->kind == Answer::Kind::foreignElement) {
    const std::size_t index = std::min(answer_->elementIndex, elements.size());
    elements.insert(elements.begin() + static_cast<std::ptrdiff_t>(index),
                    create(Value{Text(u"foreign")}));
    return createArray(elements);
  }
  for (std::size_t index = 1; index < elements.size(); ++index) {
    release(elements[index], function_);
  }
  return elements.empty() ? nullptr : elements.front();
}

}  // namespace standin
