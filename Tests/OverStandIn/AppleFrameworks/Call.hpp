// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <string>

#include "Tests/OverStandIn/AppleFrameworks/Objects.hpp"
#include "Tests/OverStandIn/AppleFrameworks/StandIn.hpp"

namespace standin {

/// One call that reaches the machine: it is traced, and answered as the test asked for or else as
/// the machine answers by itself.
class Call {
 public:
  Call(const char* function, const std::string& arguments);

  /// No other answer was asked for.
  [[nodiscard]] bool answersItself() const { return answer_ == nullptr; }

  [[nodiscard]] bool fails() const {
    return answer_ != nullptr && answer_->kind == Answer::Kind::status;
  }

  [[nodiscard]] bool leavesOutSecond() const {
    return answer_ != nullptr && answer_->kind == Answer::Kind::withoutSecond;
  }

  /// For a function that returns an owned object. `own` makes the machine's own answer, null
  /// included.
  template <typename Reference, typename Own>
  Reference result(Own own) const {
    if (answersItself()) {
      return own();
    }
    if (fails()) {
      return nullptr;
    }
    const bool isMadeFromOwn = answer_->kind != Answer::Kind::object;
    const CFTypeRef object = instead(isMadeFromOwn ? CFTypeRef(own()) : nullptr);
    return static_cast<Reference>(const_cast<void*>(object));
  }

  /// For a function that returns a status and leaves an owned object. After a failure it leaves
  /// what was there, unless the test asked for an object too.
  template <typename Reference, typename Own>
  OSStatus leave(Reference* place, Own own) const {
    if (place == nullptr) {
      refuse(function_, "null in the place of a result");
    }
    if (fails()) {
      if (answer_->leavesObject) {
        *place = Reference(own());
      }
      return answer_->failure;
    }
    *place = result<Reference>(own);
    return 0;
  }

  /// How many entries a failing store of an access list leaves stored.
  [[nodiscard]] std::size_t storedEntries() const { return answer_->storedEntries; }

  /// For a function that returns a status alone.
  [[nodiscard]] OSStatus status() const { return fails() ? answer_->failure : 0; }

 private:
  /// Takes the machine's own answer over.
  [[nodiscard]] CFTypeRef instead(CFTypeRef own) const;

  const char* function_;
  const Answer* answer_ = nullptr;
};

}  // namespace standin
