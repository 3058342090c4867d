# Completion of lumaret-chrome-rule(1) in fish.

# Relative to this file, whatever the prefix of the installation is.
set --local share (dirname (dirname (dirname (realpath (status filename)))))

function __lumaret_chrome_rule_identities --inherit-variable share
    command lumaret-macos-helper list 2>/dev/null </dev/null |
        LC_ALL=C awk -f $share/lumaret-macos-helper/identities.awk 2>/dev/null
end

set --local first 'not __fish_seen_subcommand_from show clear check'
complete --command lumaret-chrome-rule --no-files
complete --command lumaret-chrome-rule --condition $first --arguments show \
    --description 'Show the rule that Chrome follows'
complete --command lumaret-chrome-rule --condition $first --arguments clear --description 'Take the rule back'
complete --command lumaret-chrome-rule --condition $first --arguments check \
    --description 'Find out what does not work'
complete --command lumaret-chrome-rule --condition '__fish_seen_subcommand_from show clear check' \
    --long-option json --description 'Print JSON'
complete --command lumaret-chrome-rule --keep-order --condition '__fish_seen_subcommand_from check' \
    --arguments '(__lumaret_chrome_rule_identities)'
