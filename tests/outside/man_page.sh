#!/bin/sh
# A man page has exactly the options of its program's --help, commands of the program included, and
# mandoc finds nothing to warn of. Ends with 77 where there is no mandoc.
# Usage: man_page.sh PAGE PROGRAM [EMULATOR]
set -eu
page=$1
program=$2
emulator=${3:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# A line such as "  -P,--cpu CPU" for each option; after "Commands;" a line for each command.
$emulator "$program" --help >"$work/help"
sed -n '/^Commands;/,/^$/s/^  \([a-z]*\) .*/\1/p' "$work/help" >"$work/commands"
while read -r command; do
    $emulator "$program" "$command" --help >>"$work/help" </dev/null
done <"$work/commands"
sed -nE 's/^  (-[^ ]+).*/\1/p' "$work/help" | tr ',' '\n' | sort -u >"$work/in_help"

# ".It Fl P , Fl Fl cpu Ar cpu" is "-P" and "--cpu".
sed -nE 's/^\.It (Fl .*)/\1/p' "$page" | sed -E 's/ Ar .*//; s/Fl Fl /--/g; s/Fl /-/g; s/ , /\n/g' |
    sed 's/ .*//' | sort -u >"$work/in_page"
diff -u --label "$program --help" "$work/in_help" --label "$page" "$work/in_page"
sed -nE 's/^\.It Cm ([a-z]+).*/\1/p' "$page" | sort >"$work/commands_in_page"
diff -u --label "$program --help" "$work/commands" --label "$page" "$work/commands_in_page"
[ "$($emulator "$program" --version | head -n 1 | cut -d ' ' -f 1)" = "$(basename "$page" | sed 's/\..*//')" ]

command -v mandoc >/dev/null || exit 77
mandoc -T lint -W warning "$page"
