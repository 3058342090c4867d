// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace lumaret {

/// The open descriptor of the caller's standard output: 1 until prepareStandardStreams() is called,
/// and from then on the one that it reserves for results.
int callersStandardOutput() noexcept;

}  // namespace lumaret
