# Completion of lumaret-chrome-rule(1) in bash.                                 -*- shell-script -*-

_lumaret_chrome_rule() {
  local word=${COMP_WORDS[COMP_CWORD]} share id name
  local -a candidates=(--json)
  COMPREPLY=()
  if [ "$COMP_CWORD" = 1 ]; then
    candidates=(show clear check)
  elif [ "${COMP_WORDS[1]}" = check ]; then
    share=$(CDPATH='' cd -- "${BASH_SOURCE[0]%/*}/../.." 2>/dev/null && pwd)
    while IFS=$'\t' read -r id name; do
      candidates+=("$id")
    done < <(command lumaret-macos-helper list 2>/dev/null </dev/null |
      LC_ALL=C awk -f "$share/lumaret-macos-helper/identities.awk" 2>/dev/null)
  fi
  for name in "${candidates[@]}"; do
    [[ $name != "$word"* ]] || COMPREPLY+=("$name")
  done
}

complete -F _lumaret_chrome_rule lumaret-chrome-rule
