# From the listing, one line per identity: its fingerprint, a tab, and its name and last day as a
# shell may show them. Copied into each completion between single quotes: no such quote may stand
# here, nor two backslashes in a row.
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
function to_quote(text) { return substr(text, 1, index(text, "\"") - 1) }
{
  # JSON holds no control character as it is, so two of them can stand for what is escaped. From
  # then on each quote begins or ends a text.
  listing = replaced(replaced($0, "\134\134", "\001"), "\134\"", "\002")
  count = split(listing, entries, /[{]"expiresAt":"/)
  for (number = 2; number <= count; number++) {
    entry = entries[number]
    id = to_quote(after(entry, "\"id\":\""))
    name = after(entry, "\"subject\":{\"commonName\":")
    name = substr(name, 1, 1) == "\"" ? to_quote(substr(name, 2)) : "Unnamed certificate"
    # A terminal obeys control characters, and letters are shown in another order after some.
    while ((place = index(name, "\134")) > 0)
      name = substr(name, 1, place - 1) "?" \
        substr(name, place + (substr(name, place + 1, 1) == "u" ? 6 : 2))
    gsub(/\177|\302[\200-\237]|\342\200[\250-\256]|\342\201[\246-\251]/, "?", name)
    name = replaced(replaced(name, "\001", "\134"), "\002", "\"")
    if (id ~ /^[0-9a-f]+$/ && length(id) == 64) print id "\t" name ", until " substr(entry, 1, 10)
  }
}
