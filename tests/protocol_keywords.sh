#!/usr/bin/env bash
# Fails when the table of keywords in docs/protocol.md and helpers/ProtocolKeywords.h say different things.
# Usage: protocol_keywords.sh [SOURCE_TREE]
set -euo pipefail
cd "${1:-$(dirname "$0")/..}"

# What the server calls itself in its own log lines does not travel.
in_header() {
    sed -nE 's/^ *const std::string ([A-Za-z]+) = "([^"]*)";.*/\1 \2/p' src/helpers/ProtocolKeywords.h |
        grep -vE '^Host(Name|Address) ' |
        sed -e 's/\\x01/<SOH>/; s/\\x02/<STX>/; s/\\x03/<ETX>/; s/\\x04/<EOT>/; s/\\x0E/<SO>/; s/\\x0F/<SI>/' \
            -e 's/\\x11/<DC1>/; s/\\x12/<DC2>/; s/\\x13/<DC3>/; s/\\x14/<DC4>/; s/\\x1F/<US>/'
}
in_document() {
    sed -n '/^## Keywords/,/^## Envelopes/p' docs/protocol.md | sed -nE 's/^\| `([A-Za-z]+)` \| `([^`]*)` \|$/\1 \2/p'
}

if [[ $(in_header | wc -l) -lt 40 ]]; then
    echo "protocol_keywords.sh no longer finds the keywords in the header"
    exit 1
fi
diff -u --label ProtocolKeywords.h --label docs/protocol.md <(in_header | sort) <(in_document | sort)
