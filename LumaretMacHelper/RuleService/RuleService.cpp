// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/RuleService/RuleService.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <stdexcept>
#include <utility>

#include "LumaretMacHelper/PlatformFunctions.hpp"
#include "LumaretMacHelper/RuleService/Address.hpp"

namespace lumaret {
namespace {

/// Why a call is answered with an error: its name on the bus, and a sentence.
struct Refusal : std::runtime_error {
  Refusal(const char* errorName, const std::string& sentence)
      : std::runtime_error(sentence), name(errorName) {}
  const char* name;
};

void log(uid_t user, const std::string& text) {
  writeStandardError("user " + std::to_string(user) + ": " + text + "\n");
}

int answerWithError(sd_bus_message* call, uid_t user, const char* name, const char* sentence) {
  log(user, std::string("refused: ") + sentence);
  return ::sd_bus_reply_method_errorf(call, name, "%s", sentence);
}

/// Calls `work`. What it throws becomes the answer to the call.
template <typename Work>
int answerFailures(sd_bus_message* call, uid_t user, Work work) {
  try {
    work();
    return 1;
  } catch (const Refusal& refusal) {
    return answerWithError(call, user, refusal.name, refusal.what());
  } catch (const RuleChange::InvalidArgument& error) {
    return answerWithError(call, user, SD_BUS_ERROR_INVALID_ARGS, error.what());
  } catch (const std::exception& error) {
    return answerWithError(call, user, SD_BUS_ERROR_FAILED, error.what());
  }
}

BusMessage callOfPolkit(sd_bus* bus, const char* method) {
  return obtainFromBus<BusMessage>(method, [&](sd_bus_message** result) {
    return ::sd_bus_message_new_method_call(bus, result, "org.freedesktop.PolicyKit1",
                                            "/org/freedesktop/PolicyKit1/Authority",
                                            "org.freedesktop.PolicyKit1.Authority", method);
  });
}

/// Throws Refusal unless this is polkit's yes.
void checkAnswer(sd_bus_message* answer) {
  if (const sd_bus_error* error = ::sd_bus_message_get_error(answer); error != nullptr) {
    throw Refusal(SD_BUS_ERROR_ACCESS_DENIED, std::string("polkit did not answer: ") + error->name);
  }
  int isAuthorized = 0;
  int isChallenge = 0;
  checkBus(::sd_bus_message_enter_container(answer, SD_BUS_TYPE_STRUCT, "bba{ss}"), "polkit");
  checkBus(::sd_bus_message_read(answer, "bb", &isAuthorized, &isChallenge), "polkit");
  if (isAuthorized == 0) {
    throw isChallenge == 0 ? Refusal(SD_BUS_ERROR_ACCESS_DENIED, "polkit does not allow it.")
                           : Refusal(SD_BUS_ERROR_INTERACTIVE_AUTHORIZATION_REQUIRED,
                                     "polkit has to ask, and nothing can show its question.");
  }
}

}  // namespace

/// A call that waits for polkit's answer.
struct RuleService::Question {
  RuleService& service;
  BusMessage call;
  uid_t user;
  RuleChange change;
  /// The name by which polkit takes the question back.
  std::string name;
  BusTrack caller;
  BusSlot answer;
};

RuleService::RuleService(sd_bus* calls, sd_bus* questions) : bus_(questions) {
  static const std::array<sd_bus_vtable, 4> methods = {
      {SD_BUS_VTABLE_START(0),
       SD_BUS_METHOD_WITH_NAMES(ruleService::storeRule, "ss",
                                SD_BUS_PARAM(browser) SD_BUS_PARAM(rule), "", "", handleStoreRule,
                                SD_BUS_VTABLE_UNPRIVILEGED),
       SD_BUS_METHOD_WITH_NAMES(ruleService::clearRule, "s", SD_BUS_PARAM(browser), "", "",
                                handleClearRule, SD_BUS_VTABLE_UNPRIVILEGED),
       SD_BUS_VTABLE_END}};
  methods_ = obtainFromBus<BusSlot>("sd_bus_add_object_vtable", [&](sd_bus_slot** result) {
    return ::sd_bus_add_object_vtable(calls, result, ruleService::objectPath,
                                      ruleService::interfaceName, methods.data(), this);
  });
}

RuleService::~RuleService() = default;

bool RuleService::isIdle() const noexcept { return questions_.empty(); }

int RuleService::handleStoreRule(sd_bus_message* call, void* userdata, sd_bus_error* /*error*/) {
  return static_cast<RuleService*>(userdata)->handleCall(call, [call] {
    const char* browser = nullptr;
    const char* rule = nullptr;
    checkBus(::sd_bus_message_read(call, "ss", &browser, &rule), "sd_bus_message_read");
    return RuleChange::storing(browser, rule);
  });
}

int RuleService::handleClearRule(sd_bus_message* call, void* userdata, sd_bus_error* /*error*/) {
  return static_cast<RuleService*>(userdata)->handleCall(call, [call] {
    const char* browser = nullptr;
    checkBus(::sd_bus_message_read(call, "s", &browser), "sd_bus_message_read");
    return RuleChange::clearing(browser);
  });
}

uid_t RuleService::userOf(sd_bus_message* call) const {
  const auto credentials =
      obtainFromBus<BusCredentials>("sd_bus_get_name_creds", [&](sd_bus_creds** result) {
        return ::sd_bus_get_name_creds(bus_, ::sd_bus_message_get_sender(call), SD_BUS_CREDS_EUID,
                                       result);
      });
  uid_t user = 0;
  checkBus(::sd_bus_creds_get_euid(credentials.get(), &user), "sd_bus_creds_get_euid");
  return user;
}

template <typename Parse>
int RuleService::handleCall(sd_bus_message* call, Parse parse) {
  try {
    const uid_t user = userOf(call);
    return answerFailures(call, user, [&] { ask(call, user, parse()); });
  } catch (const std::system_error& error) {
    return -error.code().value();  // The caller has left the bus. sd-bus answers.
  }
}

void RuleService::ask(sd_bus_message* call, uid_t user, const RuleChange& change) {
  const auto isOfUser = [user](const Question& question) { return question.user == user; };
  const auto ofUser =
      static_cast<std::size_t>(std::count_if(questions_.begin(), questions_.end(), isOfUser));
  if (ofUser >= mostQuestionsOfOneUser ||
      questions_.size() >= (ofUser == 0 ? mostQuestions : mostQuestions / 2)) {
    throw Refusal(SD_BUS_ERROR_LIMITS_EXCEEDED, "Too many calls wait for an answer of polkit.");
  }

  const char* const caller = ::sd_bus_message_get_sender(call);
  Question& question =
      questions_.emplace_back(Question{*this, BusMessage(::sd_bus_message_ref(call)), user, change,
                                       std::to_string(++questionsSoFar_), nullptr, nullptr});
  try {
    question.caller = obtainFromBus<BusTrack>("sd_bus_track_new", [&](sd_bus_track** result) {
      return ::sd_bus_track_new(bus_, result, handleCallerGone, &question);
    });
    checkBus(::sd_bus_track_add_name(question.caller.get(), caller), "sd_bus_track_add_name");

    const BusMessage asking = callOfPolkit(bus_, "CheckAuthorization");
    constexpr std::uint32_t allowUserInteraction = 1;
    const bool mayAsk = ::sd_bus_message_get_allow_interactive_authorization(call) > 0;
    checkBus(::sd_bus_message_append(asking.get(), "(sa{sv})sa{ss}us", "system-bus-name", 1, "name",
                                     "s", caller, ruleService::action, 0,
                                     mayAsk ? allowUserInteraction : 0, question.name.c_str()),
             "sd_bus_message_append");
    question.answer = obtainFromBus<BusSlot>("sd_bus_call_async", [&](sd_bus_slot** result) {
      return ::sd_bus_call_async(bus_, result, asking.get(), handleAnswer, &question,
                                 std::chrono::microseconds(longestQuestion).count());
    });
  } catch (...) {
    questions_.pop_back();
    throw;
  }
}

int RuleService::handleAnswer(sd_bus_message* answer, void* userdata, sd_bus_error* /*error*/) {
  Question& question = *static_cast<Question*>(userdata);
  const int result = answerFailures(question.call.get(), question.user, [&] {
    checkAnswer(answer);
    question.change.carryOut();
    log(question.user, question.change.description());
    checkBus(::sd_bus_reply_method_return(question.call.get(), ""), "sd_bus_reply_method_return");
  });
  if (::sd_bus_message_is_method_error(answer, nullptr) > 0) {
    question.service.withdraw(question);  // polkit may still show its dialog.
  }
  question.service.forget(question);
  return result;
}

int RuleService::handleCallerGone(sd_bus_track* /*track*/, void* userdata) {
  Question& question = *static_cast<Question*>(userdata);
  log(question.user, "left before polkit answered");
  question.service.withdraw(question);
  question.service.forget(question);
  return 0;
}

void RuleService::forget(const Question& question) {
  questions_.remove_if([&](const Question& other) { return &other == &question; });
}

/// Has polkit close a dialog that nobody waits for any more.
void RuleService::withdraw(const Question& question) {
  try {
    const BusMessage message = callOfPolkit(bus_, "CancelCheckAuthorization");
    checkBus(::sd_bus_message_append(message.get(), "s", question.name.c_str()),
             "sd_bus_message_append");
    checkBus(::sd_bus_message_set_expect_reply(message.get(), 0),
             "sd_bus_message_set_expect_reply");
    checkBus(::sd_bus_send(bus_, message.get(), nullptr), "sd_bus_send");
  } catch (const std::system_error& error) {
    log(question.user, error.what());  // Whatever polkit answers, nobody listens.
  }
}

}  // namespace lumaret
