#!/bin/sh
# What a loader and a disassembler see of the built shared object, an ELF file.
# usage: binary.sh READELF OBJDUMP LIBRARY HEADER EXPORT_LIST    (of the library's machine, the first two)
set -eu
[ $# -eq 5 ] || { sed -n 's/^# usage/usage/p' "$0" >&2; exit 2; }
readelf=$1
objdump=$2
library=$3
header=$4
list=$5
failed=0

same() { # WHAT EXPECTED FOUND
    if [ "$2" != "$3" ]; then
        printf '%s\nexpected:\n%s\nfound:\n%s\n\n' "$1" "$2" "$3"
        failed=1
    fi
}

dynamic=$("$readelf" --dynamic --wide "$library")
machine=$("$readelf" --file-header "$library" | sed -n 's/^ *Machine: *//p')
segments=$("$readelf" --segments --wide "$library")
symbols=$("$readelf" --dyn-syms --wide "$library" | sed 's/@.*//; s/\[.*\]//' | awk '$5 == "GLOBAL" || $5 == "WEAK"')

declared=$(sed -n 's/^CVSD_QOR_API [^([]*[ *]\([A-Za-z0-9_]*\)[[(].*/\1/p' "$header" | sort)
listed=$(sed -n '/global:/,/local:/s/^ *\([A-Za-z0-9_]*\);$/\1/p' "$list" | sort)
same "export list against header" "$declared" "$listed"
same "exported names" "$listed" "$(echo "$symbols" | awk '$7 != "UND" {print $8}' | sort)"
# On 32-bit Arm the compiler's division routines come along, which import raise for a division by zero.
case $machine in
ARM) imports='^(mem(set|cpy|move)|raise)$' ;;
*) imports='^mem(set|cpy|move)$' ;;
esac
same "imported names other than fill, copy and move" "" \
    "$(echo "$symbols" | awk '$7 == "UND" {print $8}' | grep -vE "$imports" || true)"

same "soname" "[libcvsd_qor]" "$(echo "$dynamic" | awk '/SONAME/ {print $NF}')"
same "needed libraries other than libc" "" "$(echo "$dynamic" | awk '/NEEDED/ && $NF !~ /^\[libc\.so/ {print $NF}')"
same "text relocations" "" "$(echo "$dynamic" | grep TEXTREL || true)"
same "binding at load, own names first" "NOW SYMBOLIC" \
    "$(echo "$dynamic" | grep -owE "NOW|SYMBOLIC" | sort -u | paste -sd" ")"

# All writable memory lies within what the loader makes read-only once it has relocated the library (RELRO). Two
# machines' linkers leave the table of addresses outside; there is none of ours in it.
case $machine in
*RISC-V* | *MIPS*) outside='^\.got$' ;;
*) outside='^$' ;;
esac
relro=$(echo "$segments" | awk '$1 == "GNU_RELRO" {print $3, $6}')
relro_start=$((${relro% *} + 0))
relro_end=$((relro_start + ${relro#* } + 0))
same "writable data" "" "$("$readelf" --sections --wide "$library" | sed -n 's/^ *\[ *[0-9]*\] *//p' |
    awk '$7 ~ /W/ {print $1, "0x" $3, "0x" $5}' | while read -r name address size; do
        [ $((address)) -ge $relro_start ] && [ $((address + size)) -le $relro_end ] ||
            [ $((size)) -eq 0 ] || echo "$name" | grep -E "$outside" >/dev/null || echo "$name, $size at $address"
    done)"
same "stack flags" "RW" "$(echo "$segments" | awk '$1 == "GNU_STACK" {print $7}')"
case $machine in
AArch64)
    # Pages of 16 KiB.
    same "segment alignment" "" "$(echo "$segments" | awk '$1 == "LOAD" {print $NF}' | while read -r align; do
        [ $((align)) -ge 16384 ] || echo "$align"
    done)"
    ;;
esac

# No floating point: neither instructions that compute with it, beside those that only move or combine the bits of its
# registers, nor the compiler's routines in their stead.
but='^$'
case $machine in
*X86-64 | *80386)
    float='^f|^v?cvt|(ss|sd|ps|pd)$'
    but='^v?(p|mov|shuf|unpck|andn?|or|xor|blend|insert|extract|broadcast)'
    ;;
AArch64) float='^f|^[su]cvtf' but='^fmov' ;;
ARM) float='\.f(16|32|64)' but='^vmov' ;;
*S/390) float='.[edx]bra?$|^(me|ma|ms|sq|[asmdck])[edx]b$|^[vw]f.*[dsx]bs?$|^[vw]c(d|l?g)' ;;
PowerPC*) float='^f|^x[sv].*[dsq]ps?\.?$|^v.*fp\.?$|^vcf[su]x|^vct[su]xs' but='^fmr|^x[sv](mov|cpsgn)' ;;
*RISC-V) float='^v?f' but='^fence' ;;
*MIPS*) float='\.(s|d|ps)$|^cvt' but='^mov' ;;
*) same "machine whose floating point can be told" "" "$machine" ;;
esac
code=$("$objdump" --disassemble --no-show-raw-insn "$library" |
    sed -n 's/^ *[0-9a-f]*:[[:space:]]*\([a-z][^[:space:]]*\).*/\1/p')
[ "$(echo "$code" | wc -l)" -gt 1000 ] || same "disassembly" "some thousand instructions" "$code"
same "floating point" "" "$(echo "$code" | grep -E "${float:-^}" | grep -vE "$but" | sort | uniq -c)"
same "floating point by routines" "" "$("$readelf" --symbols --wide "$library" |
    grep -oE ' __(aeabi_([ul]*[il]2)?[df]|float|fix|[a-z]+[sdtx]f[0-9]?$).*' || true)"
exit $failed
