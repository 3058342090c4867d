// SPDX-License-Identifier: Apache-2.0
#pragma once

// Of Apple's own headers, those that the adapters use. The umbrella header of that name also
// includes some that are not there for Linux.

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFError.h>
#include <CoreFoundation/CFLocale.h>
#include <CoreFoundation/CFNumber.h>
#include <CoreFoundation/CFPreferences.h>
#include <CoreFoundation/CFString.h>

#include <cstdint>
