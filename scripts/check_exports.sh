#!/usr/bin/env bash
# The library's exported symbols and its public header agree: every exported name is declared in
# include/, and every function the header declares is exported.
# Usage: check_exports.sh <libatapi.so> <include dir> [C compiler]
set -euo pipefail
lib=$1
inc=$(cd "$2" && pwd)
cc=${3:-cc}
exported=$(nm -D --defined-only "$lib" | awk '$2 ~ /^[TDRBVW]$/ {print $3}' | grep -v '^_' | sort -u)
# Declarations of the project's own headers only (line markers tell which file a line came from).
declared=$("$cc" -E -I "$inc" "$inc/atapi.h" \
           | awk -v inc="$inc" '/^# [0-9]+ "/ { own = index($3, inc) > 0; next } own' \
           | sed -E 's/__attribute__[[:space:]]*\(\([^()]*(\([^()]*\))?[^()]*\)\)//g' \
           | tr '\n' ' ' | sed 's/;/;\n/g' \
           | grep -v 'typedef' | grep -v '{' | grep '(' \
           | sed -E 's/^[^(]*[^A-Za-z0-9_(]([A-Za-z_][A-Za-z0-9_]*)[[:space:]]*\(.*/\1/' \
           | grep -E '^[A-Za-z_][A-Za-z0-9_]*$' | sort -u)
status=0
missing_decl=$(comm -23 <(echo "$exported") <(cat "$inc"/atapi.h "$inc"/atapi/*.h | grep -oE '[A-Za-z_][A-Za-z0-9_]*' | sort -u))
if [ -n "$missing_decl" ]; then
    echo "exported but not declared in the public header:"; echo "$missing_decl"; status=1
fi
missing_export=$(comm -13 <(echo "$exported") <(echo "$declared"))
if [ -n "$missing_export" ]; then
    echo "declared in the public header but not exported:"; echo "$missing_export"; status=1
fi
[ $status -eq 0 ] && echo "exports: $(echo "$exported" | wc -l) symbols, all declared; $(echo "$declared" | wc -l) declared functions, all exported"
exit $status
