# SPDX-License-Identifier: Apache-2.0
# Reads the listing and prints one line for each identity: its fingerprint, a tab, and its name and last
# day in a form that a shell may show. The completions of all shells use it. Any awk can run it, with
# LC_ALL=C.

# The number of characters that X.520 allows in a name. A longer name is cut.
BEGIN { most = 64 }

# For short strings only: the time grows with the square of their length.
function replaced(text, old, new,    place, done) {
  while ((place = index(text, old)) > 0) {
    done = done substr(text, 1, place - 1) new
    text = substr(text, place + length(old))
  }
  return done text
}

function after(text, key,    place) {
  place = index(text, key)
  return place > 0 ? substr(text, place + length(key)) : ""
}

# The first characters of a string in UTF-8.
function beginning(text,    count, kept) {
  for (count = 0; count < most && match(text, /^.[\200-\277]*/); count++) {
    kept = kept substr(text, 1, RLENGTH)
    text = substr(text, RLENGTH + 1)
  }
  return text == "" ? kept : kept "..."
}

# The name at the beginning of a text that starts with a JSON value and may continue with the listing.
function shown(value,    name, place) {
  if (substr(value, 1, 1) != "\"") return "Unnamed certificate"
  # A character takes at most six bytes, as in "\u0000". Beyond the characters that are shown, a part of
  # one more is enough to tell that the name is longer.
  name = substr(value, 2, 6 * most + 1)
  # JSON contains no unescaped control characters, so two of them can stand for an escaped backslash and
  # an escaped quote. After that, the first quote ends the name.
  name = replaced(replaced(name, "\\\\", "\001"), "\\\"", "\002")
  if ((place = index(name, "\"")) > 0) name = substr(name, 1, place - 1)
  # A terminal obeys control characters, and some characters change the order in which letters are shown.
  while ((place = index(name, "\\")) > 0)
    name = substr(name, 1, place - 1) "?" \
      substr(name, place + (substr(name, place + 1, 1) == "u" ? 6 : 2))
  gsub(/\177|\302[\200-\237]|\342\200[\250-\256]|\342\201[\246-\251]/, "?", name)
  return beginning(replaced(replaced(name, "\001", "\\"), "\002", "\""))
}

{
  # A quote within a string has a backslash before it, so no string looks like one of these keys.
  count = split($0, entries, /[{]"expiresAt":"/)
  for (number = 2; number <= count; number++) {
    id = substr(after(entries[number], "\"id\":\""), 1, 64)
    name = shown(after(entries[number], ",\"subject\":{\"commonName\":"))
    if (id ~ /^[0-9a-f]+$/ && length(id) == 64)
      print id "\t" name ", until " substr(entries[number], 1, 10)
  }
}
