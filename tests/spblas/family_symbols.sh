#!/bin/sh
# Objects compiled for a newer processor must leave nothing behind that the linker could share with the rest: no weak or unique symbol.
# Usage: family_symbols.sh NM OBJECT...
nm=$1
shift
for object in "$@"; do
    shared=$("$nm" -C --defined-only "$object" | awk '$2 ~ /^[WVwvu]$/')
    if [ -n "$shared" ]; then
        echo "$object:"
        echo "$shared"
        exit 1
    fi
done
