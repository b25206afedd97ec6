#!/usr/bin/env bash
# Every copy and format goes through the bounded helpers: no raw strcpy/sprintf/strcat/gets in the
# library, the server, the simulator or the tools. The bounded helpers themselves are exempt.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
cd "$top"
dirs=()
for d in src server sim tools platform; do [ -d "$d" ] && dirs+=("$d"); done
hits=$(grep -rnE '(^|[^A-Za-z0-9_])(strcpy|strcat|sprintf|vsprintf|gets)[[:space:]]*\(' "${dirs[@]}" \
         --include='*.c' --include='*.cpp' --include='*.h' \
       | grep -v '^platform/bounded_string.cpp:' || true)
if [ -n "$hits" ]; then
    echo "raw unbounded string calls (use the bounded helpers):"
    echo "$hits"
    exit 1
fi
echo "source check: no raw strcpy/strcat/sprintf/gets"
