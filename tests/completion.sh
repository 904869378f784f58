#!/usr/bin/env bash
# Completes command lines of velto-server as a shell would.
# Usage: completion.sh SOURCE_TREE PROGRAM
set -uo pipefail

# shellcheck source=packaging/completion/velto-server
. "$1/packaging/completion/velto-server"
program=$2
failures=0

# expect WORD WORD…: the words are completed at the last but one, and the last one must be among the results.
expect() {
    local wanted=${*: -1}
    COMP_WORDS=("$program" "${@:1:$#-1}")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    _velto_server
    for result in "${COMPREPLY[@]}"; do
        [[ $result == "$wanted" ]] && return
    done
    echo "${COMP_WORDS[*]}: \"$wanted\" is not among: ${COMPREPLY[*]}"
    failures=$((failures + 1))
}

VELTO_HOME=$(mktemp -d)
export VELTO_HOME
trap 'rm -rf "$VELTO_HOME"' EXIT
"$program" init >/dev/null && echo secret | "$program" user add ada --password-stdin >/dev/null || exit 1

expect "" backup
expect us user
expect user "" password
expect user add --pass --password-file
expect run --log-format j journal
expect run --tr --trace-sql
expect config get 'general\ setup/l' 'General\ SetUp/ListeningPort'
expect config set '"Mail/' 'Mail/Port'
expect call get_ServerI get_ServerIP
expect --home "$VELTO_HOME" command logoff "" ada

# What can be completed has its place in the manual page.
COMP_WORDS=("$program" "") COMP_CWORD=1
_velto_server
for command in "${COMPREPLY[@]}"; do
    if ! grep -qE "^\.BR? \"?$command\\b" "$1/packaging/man/velto-server.8"; then
        echo "velto-server(8) says nothing about $command"
        failures=$((failures + 1))
    fi
done
exit "$failures"
