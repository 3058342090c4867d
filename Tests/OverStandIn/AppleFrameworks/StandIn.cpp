// SPDX-License-Identifier: Apache-2.0
#include "Tests/OverStandIn/AppleFrameworks/StandIn.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>

#include "Tests/OverStandIn/AppleFrameworks/Call.hpp"

namespace standin {
namespace {

struct State {
  json machine = json::parse(R"({"identities": [], "applications": {}, "preferences": {},
      "unsynchronized": {}, "runningApplications": [], "locale": "", "answers": {}})");
  std::vector<std::string> trace = {};
  std::map<std::string, int> callsByFunction = {};
};

const char* file() { return std::getenv("LUMARET_STAND_IN_MACHINE"); }

void requireNothingLeft() {
  if (const std::size_t left = liveObjects(); left != 0) {
    std::fprintf(stderr, "%zu objects were not released.\n", left);
    std::_Exit(EXIT_FAILURE);
  }
}

State initialState() {
  State state;
  if (file() != nullptr) {
    state.machine.update(json::parse(std::ifstream(file())));
    std::atexit(requireNothingLeft);
  }
  return state;
}

State& state() {
  static auto& only = *new State(initialState());
  return only;
}

}  // namespace

json& machine() { return state().machine; }

void startOver() { state() = State(); }

void save() {
  if (file() != nullptr) {
    std::ofstream(file()) << machine();
  }
}

const std::vector<std::string>& trace() { return state().trace; }

std::vector<std::string> calls(std::string_view prefix) {
  std::vector<std::string> found;
  std::ranges::copy_if(trace(), std::back_inserter(found),
                       [prefix](const std::string& call) { return call.starts_with(prefix); });
  return found;
}

void require(bool condition, const char* what, const char* function) {
  if (!condition) {
    std::fprintf(stderr, "%s requires %s.\n", function, what);
    std::abort();
  }
}

Call::Call(const std::string& object, const char* function) : function_(function) {
  state().trace.push_back(std::string(function) + "(" + object + ")");
  const int number = ++state().callsByFunction[function];
  for (const json& answer : machine()["answers"].value(function, json::array())) {
    if (answersItself() && answer.value("call", number) == number) {
      answer_ = answer;
    }
  }
}

CFTypeRef Call::changed(CFTypeRef own) const {
  if (!answer_.contains("firstElement") && !answer_.contains("foreignElement")) {
    return own;
  }
  std::vector<CFTypeRef> elements = elementsOf(own);
  std::ranges::for_each(elements, CFRetain);
  if (own != nullptr) {
    CFRelease(own);
  }
  if (answer_.contains("foreignElement")) {
    const auto index = std::min(answer_["foreignElement"].get<std::size_t>(), elements.size());
    elements.insert(elements.begin() + static_cast<std::ptrdiff_t>(index), create("foreign"));
    return createArray(elements);
  }
  std::for_each(elements.begin() + (elements.empty() ? 0 : 1), elements.end(), CFRelease);
  return elements.empty() ? nullptr : elements.front();
}

}  // namespace standin
