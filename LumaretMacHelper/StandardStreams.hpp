#pragma once

#include <string_view>

namespace lumaret {

/// To be called before any file is opened. Reserves the descriptors 0 to 2 that the caller left
/// closed, so that nothing written to them lands in another file, and makes a write to a closed
/// pipe an error instead of the end of the process.
void prepareStandardStreams() noexcept;

/// Writes every byte. Throws std::system_error when the stream is closed, full or broken.
void writeStandardOutput(std::string_view text);

/// Writes what can be written: nobody is left to be told of a failure.
void writeStandardError(std::string_view text) noexcept;

}  // namespace lumaret
