// SPDX-License-Identifier: Apache-2.0
#pragma once

// The functions that a platform defines for the core to call. The core is compiled once, against
// these declarations alone; linking decides which platform they come from. POSIX systems share the
// standard streams, which are in the folder POSIX.

#include <array>
#include <compare>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <span>
#include <string>
#include <string_view>

namespace lumaret {

/// SHA-256 (FIPS 180-4), computed by the platform's cryptographic library.
std::array<std::uint8_t, 32> sha256(std::span<const std::uint8_t> bytes);

using TextComparison = std::function<std::weak_ordering(const std::string&, const std::string&)>;

/// The case-insensitive comparison of UTF-8 strings in the user's locale, which is read here, once
/// for a whole sort. Throws a std::exception if the platform cannot order strings.
TextComparison localizedCaseInsensitiveComparison();

/// See ChromeLauncher::defaultExecutableURL().
std::filesystem::path chromeExecutable();

/// Call this once, before any file is opened. It opens the descriptors 0 to 2 that the caller left
/// closed, so nothing written to them ends up in another file. A write to a closed pipe, or beyond
/// the file size limit, becomes an error and no longer ends the process. From then on only
/// writeStandardOutput() reaches the caller's standard output; all else goes to standard error.
void prepareStandardStreams() noexcept;

/// Writes every byte to the caller's standard output. Throws std::system_error.
void writeStandardOutput(std::string_view text);

/// Ignores failures: there is nobody left to tell.
void writeStandardError(std::string_view text) noexcept;

}  // namespace lumaret
