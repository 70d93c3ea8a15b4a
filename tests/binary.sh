#!/bin/sh
# What a loader sees of the built shared object.
# usage: binary.sh READELF LIBRARY HEADER EXPORT_LIST
set -eu
readelf=$1
library=$2
header=$3
list=$4
failed=0

same() { # WHAT EXPECTED FOUND
    if [ "$2" != "$3" ]; then
        printf '%s\nexpected:\n%s\nfound:\n%s\n\n' "$1" "$2" "$3"
        failed=1
    fi
}

dynamic=$("$readelf" --dynamic --wide "$library")
segments=$("$readelf" --segments --wide "$library")
symbols=$("$readelf" --dyn-syms --wide "$library" | sed 's/@.*//' | awk '$5 == "GLOBAL" || $5 == "WEAK"')

declared=$(sed -n 's/^CVSD_QOR_API [^([]*[ *]\([A-Za-z0-9_]*\)[[(].*/\1/p' "$header" | sort)
listed=$(sed -n '/global:/,/local:/s/^ *\([A-Za-z0-9_]*\);$/\1/p' "$list" | sort)
same "export list against header" "$declared" "$listed"
same "exported names" "$listed" "$(echo "$symbols" | awk '$7 != "UND" {print $8}' | sort)"
# On 32-bit Arm the compiler's division routines come along, which import raise for a division by zero.
case $("$readelf" --file-header "$library") in
*"Machine: "*" ARM"*) imports='^(mem(set|cpy|move)|raise)$' ;;
*) imports='^mem(set|cpy|move)$' ;;
esac
same "imported names other than fill, copy and move" "" \
    "$(echo "$symbols" | awk '$7 == "UND" {print $8}' | grep -vE "$imports" || true)"

same "soname" "[libcvsd_qor]" "$(echo "$dynamic" | awk '/SONAME/ {print $NF}')"
same "needed libraries other than libc" "" "$(echo "$dynamic" | awk '/NEEDED/ && $NF !~ /^\[libc\.so/ {print $NF}')"
same "text relocations" "" "$(echo "$dynamic" | grep TEXTREL || true)"
same "binding at load, own names first" "NOW SYMBOLIC" \
    "$(echo "$dynamic" | grep -owE "NOW|SYMBOLIC" | sort -u | paste -sd" ")"

# All writable memory lies within what the loader makes read-only once it has relocated the library.
relro=$(echo "$segments" | awk '$1 == "GNU_RELRO" {print $3, $6}')
relro_start=$((${relro% *}))
relro_end=$((relro_start + ${relro#* }))
same "writable data" "" "$(echo "$segments" | awk '$1 == "LOAD" && $7 ~ /W/ {print $3, $6}' |
    while read -r address size; do
        [ $((address)) -ge $relro_start ] && [ $((address + size)) -le $relro_end ] || echo "$size at $address"
    done)"
same "stack flags" "RW" "$(echo "$segments" | awk '$1 == "GNU_STACK" {print $7}')"
case $("$readelf" --file-header "$library") in
*AArch64*)
    # Pages of 16 KiB.
    same "segment alignment" "" "$(echo "$segments" | awk '$1 == "LOAD" {print $NF}' | while read -r align; do
        [ $((align)) -ge 16384 ] || echo "$align"
    done)"
    ;;
esac
exit $failed
