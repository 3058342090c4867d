// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// A Mac in memory behind Apple's frameworks. A test sets it up, runs code that calls the
/// frameworks, and checks how the Mac has changed. Where Apple's source is unkind, so is this.
///
/// Wrong use ends the process with a message: an object that was released, that no framework made,
/// or that has the wrong type; null where a framework would crash; one release too many.
namespace standin {

using nlohmann::json;

/// The Mac. The environment variable LUMARET_STAND_IN_MACHINE may name a file with it, into which
/// the frameworks then store it; otherwise it is empty at first. Its members:
///
///     identities           a list, in the order of the Keychain. Each has
///         certificate          a string: its bytes are the certificate's. It names the identity in
///                              the trace.
///         values               the certificate's values. Absent: it cannot be read.
///         accessList           the entries of its key's access list. Null: a token's key, which is
///                              not a keychain item. Absent: there is no key.
///         isInNoKeychain       true if the key is in none
///     applications         the canonical path of each path where there is an application
///     preferences          the current user's on any host, by application and by key
///     forced               those that an administrator forces
///     unsynchronized       those that were set in the same way, but not yet synchronized
///     runningApplications  bundle identifiers
///     locale               such as "sv". If it is empty, that of the library
///     answers              lists of answers by function, which a test gives in place of the Mac's
///
/// An entry of an access list has
///
///     authorizations  names of constants. Any other string is a tag without a constant.
///     applications    paths. Null: any application. Empty: none
///     description     its bytes
///     promptSelector
///     isCustom        true if its form is none that the framework can show
///
/// A value is JSON with additions: an object that has "date", in seconds since 2001, is a date, and
/// one that has "data", a list of bytes, is data, as binary is. A string may contain a lone
/// surrogate in the form of UTF-8.
json& machine();

/// Replaces the Mac with an empty one.
void startOver();

/// Stores the Mac in its file, if it has one.
void save();

/// All calls that reached the Mac, in order, as "function(object)". Calls that retain, release,
/// make or read objects of Core Foundation are not traced.
const std::vector<std::string>& trace();
/// The calls in the trace with this prefix.
std::vector<std::string> calls(std::string_view prefix);

/// The number of objects that the frameworks returned and that were not released. Apple's own Core
/// Foundation does not count them: there it is 0, and the leak sanitizer notices what is left.
std::size_t liveObjects();

// Answers. With {"call", number} too, an answer is only for the call with this number, from 1.

/// Fails. A function without a status returns false or null, and one without a result does nothing.
/// With {"leavesObject", true} too, still stores its own object, which the caller then owns. With
/// {"storedEntries", number} too, so many entries of an access list stay stored.
inline json status(std::int32_t status) { return {{"status", status}}; }
/// Succeeds with this value, or without an object.
inline json object(json value) { return {{"object", std::move(value)}}; }
inline json nothing() { return object(nullptr); }
/// Succeeds with the first element of its own array, or without an object if the array is empty.
inline json firstElement() { return {{"firstElement", true}}; }
/// Succeeds with its own array and a string in it, before the element of this index, or at the end
/// of a shorter array. Without an array of its own, succeeds with only the string.
inline json foreignElement(std::size_t index) { return {{"foreignElement", index}}; }

}  // namespace standin
