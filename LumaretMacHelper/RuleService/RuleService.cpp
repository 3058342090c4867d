// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/RuleService/RuleService.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <stdexcept>

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
  } catch (const std::invalid_argument& error) {
    return answerWithError(call, user, SD_BUS_ERROR_INVALID_ARGS, error.what());
  } catch (const std::exception& error) {
    return answerWithError(call, user, SD_BUS_ERROR_FAILED, error.what());
  }
}

/// The change that a call asks for. sd-bus has compared its arguments with the methods' signatures.
RuleChange changeIn(sd_bus_message* call) {
  const char* browser = nullptr;
  const char* rule = nullptr;
  checkBus(::sd_bus_message_read(call, "s", &browser), "sd_bus_message_read");
  if (::sd_bus_message_has_signature(call, "ss") > 0) {
    checkBus(::sd_bus_message_read(call, "s", &rule), "sd_bus_message_read");
  }
  return {browser, rule != nullptr ? std::optional<std::string_view>(rule) : std::nullopt};
}

/// Calls a method of polkit without waiting for the answer.
template <typename... Arguments>
int callPolkit(sd_bus* bus, sd_bus_slot** slot, const char* method,
               sd_bus_message_handler_t handler, void* userdata, const char* types,
               Arguments... arguments) {
  return ::sd_bus_call_method_async(
      bus, slot, "org.freedesktop.PolicyKit1", "/org/freedesktop/PolicyKit1/Authority",
      "org.freedesktop.PolicyKit1.Authority", method, handler, userdata, types, arguments...);
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
                                     "polkit has to ask, but nothing can show its question.");
  }
}

}  // namespace

/// A call that waits for polkit's answer.
struct RuleService::Question {
  RuleService& service;
  BusOwner<sd_bus_message> call;
  uid_t user;
  RuleChange change;
  /// The name by which polkit takes the question back.
  std::string name;
  BusOwner<sd_bus_track> caller;
  BusOwner<sd_bus_slot> answer;
};

RuleService::RuleService(sd_bus* calls, sd_bus* questions) : bus_(questions) {
  static const std::array<sd_bus_vtable, 4> methods = {
      {SD_BUS_VTABLE_START(0),
       SD_BUS_METHOD_WITH_NAMES(ruleService::storeRule, "ss",
                                SD_BUS_PARAM(browser) SD_BUS_PARAM(rule), "", "", handleCall,
                                SD_BUS_VTABLE_UNPRIVILEGED),
       SD_BUS_METHOD_WITH_NAMES(ruleService::clearRule, "s", SD_BUS_PARAM(browser), "", "",
                                handleCall, SD_BUS_VTABLE_UNPRIVILEGED),
       SD_BUS_VTABLE_END}};
  checkBus(::sd_bus_add_object_vtable(calls, nullptr, ruleService::objectPath,
                                      ruleService::interfaceName, methods.data(), this),
           "sd_bus_add_object_vtable");
  checkBus(::sd_bus_set_method_call_timeout(questions,
                                            std::chrono::microseconds(longestQuestion).count()),
           "sd_bus_set_method_call_timeout");
}

RuleService::~RuleService() = default;

bool RuleService::isIdle() const noexcept { return questions_.empty(); }

int RuleService::handleCall(sd_bus_message* call, void* userdata, sd_bus_error* /*error*/) {
  auto& service = *static_cast<RuleService*>(userdata);
  try {
    const uid_t user = service.userOf(call);
    return answerFailures(call, user, [&] { service.ask(call, user, changeIn(call)); });
  } catch (const std::system_error& error) {
    return -error.code().value();  // The caller has left the bus. sd-bus answers.
  }
}

uid_t RuleService::userOf(sd_bus_message* call) const {
  sd_bus_creds* credentials = nullptr;
  checkBus(::sd_bus_get_name_creds(bus_, ::sd_bus_message_get_sender(call), SD_BUS_CREDS_EUID,
                                   &credentials),
           "sd_bus_get_name_creds");
  const BusOwner<sd_bus_creds> owner(credentials);
  uid_t user = 0;
  checkBus(::sd_bus_creds_get_euid(credentials, &user), "sd_bus_creds_get_euid");
  return user;
}

void RuleService::ask(sd_bus_message* call, uid_t user, const RuleChange& change) {
  const auto ofUser =
      static_cast<std::size_t>(std::ranges::count(questions_, user, &Question::user));
  if (ofUser >= mostQuestionsOfOneUser ||
      questions_.size() >= (ofUser == 0 ? mostQuestions : mostQuestions / 2)) {
    throw Refusal(SD_BUS_ERROR_LIMITS_EXCEEDED, "Too many calls are waiting for polkit's answer.");
  }

  const char* const caller = ::sd_bus_message_get_sender(call);
  std::list<Question> asked;
  Question& question =
      asked.emplace_back(Question{*this, BusOwner<sd_bus_message>(::sd_bus_message_ref(call)), user,
                                  change, std::to_string(++questionsSoFar_), nullptr, nullptr});
  sd_bus_track* track = nullptr;
  checkBus(::sd_bus_track_new(bus_, &track, handleCallerGone, &question), "sd_bus_track_new");
  question.caller.reset(track);
  checkBus(::sd_bus_track_add_name(track, caller), "sd_bus_track_add_name");

  constexpr std::uint32_t allowUserInteraction = 1;
  const bool mayAsk = ::sd_bus_message_get_allow_interactive_authorization(call) > 0;
  sd_bus_slot* answer = nullptr;
  checkBus(
      callPolkit(bus_, &answer, "CheckAuthorization", handleAnswer, &question, "(sa{sv})sa{ss}us",
                 "system-bus-name", 1, "name", "s", caller, ruleService::action, 0,
                 mayAsk ? allowUserInteraction : 0, question.name.c_str()),
      "CheckAuthorization");
  question.answer.reset(answer);
  questions_.splice(questions_.end(), asked);
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

/// Has polkit close a dialog that nobody waits for any more. Whatever it answers, nobody listens.
void RuleService::withdraw(const Question& question) {
  if (callPolkit(bus_, nullptr, "CancelCheckAuthorization", nullptr, nullptr, "s",
                 question.name.c_str()) < 0) {
    log(question.user, "polkit could not be told that its answer is no longer awaited");
  }
}

void RuleService::forget(const Question& question) {
  questions_.remove_if([&](const Question& other) { return &other == &question; });
}

}  // namespace lumaret
