# SPDX-License-Identifier: Apache-2.0
# From the listing, one line per identity: its fingerprint, a tab, and its name and last day as a shell
# may show them. For the completions of all shells, in any awk that is told LC_ALL=C.

# As many characters of a name as X.520 allows it; what is longer is cut.
BEGIN { most = 64 }

# For short texts alone: its time grows with the square of their length.
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

# The first characters of a text in UTF-8.
function beginning(text,    count, kept) {
  for (count = 0; count < most && match(text, /^.[\200-\277]*/); count++) {
    kept = kept substr(text, 1, RLENGTH)
    text = substr(text, RLENGTH + 1)
  }
  return text == "" ? kept : kept "..."
}

# The name that a JSON value gives, which the rest of the listing may follow.
function shown(value,    name, place) {
  if (substr(value, 1, 1) != "\"") return "Unnamed certificate"
  # A character takes six at most, as "\u0000"; of one more than are shown, it is enough to see a part.
  name = substr(value, 2, 6 * most + 1)
  # JSON holds no control character as it is, so two of them can stand for what is escaped. From then on
  # a quote ends the name.
  name = replaced(replaced(name, "\\\\", "\001"), "\\\"", "\002")
  if ((place = index(name, "\"")) > 0) name = substr(name, 1, place - 1)
  # A terminal obeys control characters, and letters are shown in another order after some.
  while ((place = index(name, "\\")) > 0)
    name = substr(name, 1, place - 1) "?" \
      substr(name, place + (substr(name, place + 1, 1) == "u" ? 6 : 2))
  gsub(/\177|\302[\200-\237]|\342\200[\250-\256]|\342\201[\246-\251]/, "?", name)
  return beginning(replaced(replaced(name, "\001", "\\"), "\002", "\""))
}

{
  # A quote within a text has a backslash before it: no text looks like one of these keys.
  count = split($0, entries, /[{]"expiresAt":"/)
  for (number = 2; number <= count; number++) {
    id = substr(after(entries[number], "\"id\":\""), 1, 64)
    name = shown(after(entries[number], ",\"subject\":{\"commonName\":"))
    if (id ~ /^[0-9a-f]+$/ && length(id) == 64)
      print id "\t" name ", until " substr(entries[number], 1, 10)
  }
}
