// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <string>

#include "Tests/OverStandIn/AppleFrameworks/Objects.hpp"
#include "Tests/OverStandIn/AppleFrameworks/StandIn.hpp"

namespace standin {

/// A call that reaches the machine. It is traced. Its answer is the one that the test has set, or
/// else the machine's own.
class Call {
 public:
  Call(const char* function, const std::string& arguments);

  /// The test has set no answer for it.
  [[nodiscard]] bool answersItself() const { return answer_ == nullptr; }

  [[nodiscard]] bool fails() const {
    return answer_ != nullptr && answer_->kind == Answer::Kind::status;
  }

  /// For a function that returns an owned object. `own` makes the machine's own answer, which may
  /// be null.
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

  /// For a function that returns a status and stores an owned object at `place`. After a failure,
  /// `place` keeps its value, unless the test has set an object too.
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

  /// How many entries of an access list stay stored if storing it fails.
  [[nodiscard]] std::size_t storedEntries() const { return answer_->storedEntries; }

  /// For a function that returns only a status.
  [[nodiscard]] OSStatus status() const { return fails() ? answer_->failure : 0; }

 private:
  /// Takes ownership of the machine's own answer.
  [[nodiscard]] CFTypeRef instead(CFTypeRef own) const;

  const char* function_;
  const Answer* answer_ = nullptr;
};

}  // namespace standin
