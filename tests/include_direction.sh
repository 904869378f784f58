#!/usr/bin/env bash
# Fails when a room of src/ includes a header of a room above it, or when a third-party header appears
# anywhere in src/ but in platform/.
# Usage: include_direction.sh [SOURCE_TREE]
set -euo pipefail
cd "${1:-$(dirname "$0")/..}/src"

# From the ground up. A room may include itself and every room before it.
rooms=(base helpers platform config store net notify queue protocol online server)
third_party='^(boost|asio|sqlite3|sodium|curl|openssl|sql|sqlext|spdlog|fmt|CLI|nlohmann|systemd)(/|\.h|$)'

faults=0
for position in "${!rooms[@]}"; do
    room=${rooms[$position]}
    allowed=" ${rooms[*]:0:position+1} "
    [[ -d $room ]] || continue
    while IFS=: read -r file line include; do
        quote=${include:0:1}
        include=${include:1}
        target=${include%%/*}
        if [[ $quote == '"' && " ${rooms[*]} " == *" $target "* && $allowed != *" $target "* ]]; then
            echo "src/$file:$line: $room/ must not include $include: the arrow runs up"
            faults=1
        elif [[ $room != platform && $include =~ $third_party ]]; then
            echo "src/$file:$line: only platform/ includes third-party headers, not $room/: $include"
            faults=1
        fi
    done < <(grep -rnoE '^#include [<"][^>"]+' --include='*.h' --include='*.cpp' "$room" | sed -E 's/#include //')
done
exit "$faults"
