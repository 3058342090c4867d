// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>

#include <utility>

namespace lumaret {

/// Owns an open descriptor, or nothing.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  /// Takes the result of open(2) and similar calls. A negative number means no descriptor.
  explicit FileDescriptor(int number) noexcept : number_(number) {}
  FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~FileDescriptor() {
    if (*this) {
      ::close(number_);
    }
  }

  explicit operator bool() const noexcept { return number_ >= 0; }
  [[nodiscard]] int number() const noexcept { return number_; }

 private:
  int number_ = -1;
};

}  // namespace lumaret
