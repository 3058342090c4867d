// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "LumaretMacHelper/Contracts.hpp"

namespace lumaret {

/// The arguments are not a valid command. The description is the usage line.
class CommandError : public DescribedError {
 public:
  static CommandError usage() {
    return {"Uso: lumaret-macos-helper list | activate --fingerprint <sha256> [--url <https-url>]"};
  }

 private:
  using DescribedError::DescribedError;
};

/// The command line.
class LumaretMacHelper {
 public:
  LumaretMacHelper() = delete;

  /// Runs the process's command. If that fails, writes the message to standard error and ends the
  /// process with status 1.
  static void main(int argumentCount, const char* const* processArguments);

  /// Takes the arguments without the program's path. Throws CommandError, CertificateSelectorError,
  /// or another std::exception, for example if the result cannot be written.
  static void run(const std::vector<std::string>& arguments);

  /// The argument after the first occurrence of the flag, if there are both, whatever it is.
  static std::optional<std::string> value(std::string_view flag,
                                          const std::vector<std::string>& arguments);

 private:
  static void listIdentities();
  static void activate(const std::vector<std::string>& arguments);
};

}  // namespace lumaret
