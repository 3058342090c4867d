#compdef lumaret-chrome-rule
# Completion of lumaret-chrome-rule(1) in zsh.

_lumaret_chrome_rule_identities() {
  local id name
  local -a identities
  command lumaret-macos-helper list 2>/dev/null </dev/null |
    LC_ALL=C awk -f "$share/lumaret-macos-helper/identities.awk" 2>/dev/null |
    while IFS=$'\t' read -r id name; do
      identities+=("$id:${name//:/\\:}")
    done
  _describe identity identities
}

_lumaret_chrome_rule() {
  if (( CURRENT == 2 )); then
    local -a commands=(
      'show:show the rule that Chrome follows'
      'clear:take the rule back'
      'check:find out what does not work'
    )
    _describe command commands
  else
    local -a operand=()
    [[ $words[2] != check ]] || operand=('1:identity:_lumaret_chrome_rule_identities')
    shift words
    (( CURRENT-- ))
    _arguments '--json[print JSON]' $operand
  fi
}

# Relative to this file, whatever the prefix of the installation is.
local share=${${(%):-%x}:A:h:h:h}
_lumaret_chrome_rule "$@"
