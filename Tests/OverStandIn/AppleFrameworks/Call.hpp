// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <string>

#include "Tests/OverStandIn/AppleFrameworks/Objects.hpp"
#include "Tests/OverStandIn/AppleFrameworks/StandIn.hpp"

namespace standin {

/// A call that reaches the Mac. It is traced. Its answer is the one that the test has set, or else
/// the Mac's own.
class Call {
 public:
  explicit Call(const std::string& object, const char* function = __builtin_FUNCTION());

  /// The test has set no answer for it.
  [[nodiscard]] bool answersItself() const { return answer_.empty(); }
  [[nodiscard]] bool fails() const { return answer_.contains("status"); }

  /// For a function that returns an owned object. `own` makes the Mac's own answer, which may be
  /// null.
  template <typename Reference, typename Own>
  Reference result(Own own) const {
    return fails() ? nullptr
                   : as<Reference>(answer_.contains("object") ? create(answer_["object"])
                                                              : changed(own()));
  }

  /// For a function that returns a status and stores an owned object at `place`. After a failure,
  /// which the Mac's own answer may be, too, `place` keeps its value, unless the test has set an
  /// object too.
  template <typename Reference, typename Own>
  OSStatus leave(Reference* place, Own own, OSStatus ownStatus = 0) const {
    require(place != nullptr, "a place for its result", function_);
    if (answer_.empty() && ownStatus != 0) {
      return ownStatus;
    }
    if (!fails()) {
      *place = result<Reference>(own);
    } else if (answer_.value("leavesObject", false)) {
      *place = as<Reference>(own());
    }
    return status();
  }

  /// How many entries of an access list stay stored if storing it fails.
  [[nodiscard]] std::size_t storedEntries() const { return answer_.value("storedEntries", 0U); }

  /// For a function that returns only a status.
  [[nodiscard]] OSStatus status() const { return answer_.value("status", 0); }

 private:
  /// Takes ownership of the Mac's own answer.
  [[nodiscard]] CFTypeRef changed(CFTypeRef own) const;

  const char* function_;
  json answer_ = json::object();
};

}  // namespace standin
