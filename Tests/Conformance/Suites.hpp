// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Tests/Conformance/KeychainConformance.hpp"
#include "Tests/Conformance/LaunchingConformance.hpp"
#include "Tests/Conformance/PreferencesConformance.hpp"

/// Instantiates the suites that every platform runs, with the platform's types. Each suite says
/// what its type must have. Used in the namespace lumaret::tests::conformance.
#define LUMARET_INSTANTIATE_CONFORMANCE_SUITES(Keychain, PreferenceStore, Desktop)      \
  INSTANTIATE_TYPED_TEST_SUITE_P(Keychain, KeychainConformance, Keychain);              \
  INSTANTIATE_TYPED_TEST_SUITE_P(Preferences, PreferencesConformance, PreferenceStore); \
  INSTANTIATE_TYPED_TEST_SUITE_P(Launching, LaunchingConformance, Desktop)
