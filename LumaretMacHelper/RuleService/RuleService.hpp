// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <list>
#include <string>

#include "LumaretMacHelper/RuleService/Bus.hpp"
#include "LumaretMacHelper/RuleService/RuleChange.hpp"

namespace lumaret {

/// Changes the rule for every site for users whom polkit allows to (see Address.hpp).
///
/// The arguments are checked before polkit is asked. polkit may then show the caller a dialog. The
/// service does not wait for that: it goes on serving others, and the change is made when polkit
/// answers yes. If the caller leaves the bus first, the question is withdrawn and nothing is
/// changed. Without an answer from polkit, nothing is changed either.
///
/// Every call with the right signature is answered, and one line about it, with the caller's user
/// number, is written to standard error.
class RuleService {
 public:
  /// Questions to polkit that may wait at the same time. A call beyond that is refused, so neither
  /// memory nor polkit is exhausted. Half of them are for users who have no other question waiting,
  /// so a few cannot shut out the rest. The bus lets a connection wait for 128 answers: this one
  /// for polkit's, and polkit's for those of dialogs.
  static constexpr std::size_t mostQuestionsOfOneUser = 16;
  static constexpr std::size_t mostQuestions = 112;

  /// A dialog that nobody has answered by then counts as cancelled.
  static constexpr std::chrono::minutes longestQuestion{6};

  /// Serves the calls that arrive on the first connection, one by one, and asks its own questions
  /// on the second. Waiting for an answer there does not read further calls into memory, and a call
  /// may have 32 MiB. Both must outlive the service. Throws std::system_error.
  RuleService(sd_bus* calls, sd_bus* questions);
  RuleService(const RuleService&) = delete;
  RuleService& operator=(const RuleService&) = delete;
  ~RuleService();

  /// Whether no caller waits for an answer.
  [[nodiscard]] bool isIdle() const noexcept;

 private:
  struct Question;

  static int handleCall(sd_bus_message* call, void* userdata, sd_bus_error* error);
  static int handleAnswer(sd_bus_message* answer, void* userdata, sd_bus_error* error);
  static int handleCallerGone(sd_bus_track* track, void* userdata);

  [[nodiscard]] uid_t userOf(sd_bus_message* call) const;
  void ask(sd_bus_message* call, uid_t user, const RuleChange& change);
  void withdraw(const Question& question);
  void forget(const Question& question);

  sd_bus* bus_;  // for questions
  std::list<Question> questions_;
  std::size_t questionsSoFar_ = 0;
};

}  // namespace lumaret
