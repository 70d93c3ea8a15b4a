#!/bin/sh
# Checks the built shared object, an ELF file, as the loader and a disassembler see it: its exported and imported names,
# its memory, its instructions. Prints every difference; the exit status is 1 if there is one.
# usage: binary.sh READELF OBJDUMP LIBRARY HEADER EXPORT_LIST
#   READELF, OBJDUMP   the tools for the library's machine
#
# Relies on the columns that GNU binutils 2.40 and LLVM 14 print. A sample of the lines that are read stands beside each
# check. Where nothing found would mean success, another check shows that the lines are still understood.
set -eu
if [ $# -ne 5 ]; then
    echo "usage: binary.sh READELF OBJDUMP LIBRARY HEADER EXPORT_LIST" >&2
    exit 2
fi
readelf=$1
objdump=$2
library=$3
header=$4
export_list=$5
failed=0

# Notes a failure if what was found is not what is expected.
expect_same() { # WHAT EXPECTED FOUND
    if [ "$2" != "$3" ]; then
        printf '%s\nexpected:\n%s\nfound:\n%s\n\n' "$1" "$2" "$3"
        failed=1
    fi
}

# The lines of standard input that match no PATTERN; none is no error.
without() { # PATTERN
    grep -vE "$1" || true
}

# The target, which some rules below depend on:
#   Machine:                           Advanced Micro Devices X86-64
machine=$("$readelf" --file-header "$library" | sed -n 's/^ *Machine: *//p')

# The names that the header declares are those of the export list and those that leave the library. Of libc the library
# takes fill, copy and move alone.
check_names() {
    # CVSD_QOR_API void CVSD_ENC_Init(CvsdState *state);
    # CVSD_QOR_API extern const int16_t bdf[60]; /* decimation filter */
    # Cut at the first bracket, the line ends with the name.
    declared=$(sed -n 's/^CVSD_QOR_API //p' "$header" | sed 's/[[(].*//; s/.*[ *]//' | sort)
    #   global:
    #     CVSD_ENC_Init;
    #   local:
    listed=$(sed -n '/global:/,/local:/p' "$export_list" | sed -n 's/^ *\([A-Za-z0-9_]*\);$/\1/p' | sort)
    expect_same "export list against header" "$declared" "$listed"

    #    Num:    Value          Size Type    Bind   Vis      Ndx Name
    #      1: 0000000000000000     0 FUNC    GLOBAL DEFAULT  UND memset@GLIBC_2.2.5 (2)
    #      3: 0000000000006ba0     5 FUNC    GLOBAL DEFAULT    9 PLC_SaveSpeech
    # UND marks an import. Some machines put a remark before this column: [<localentry>: 8]
    symbols=$("$readelf" --dyn-syms --wide "$library" | sed 's/\[.*\]//; s/@.*//' |
        awk '$5 == "GLOBAL" || $5 == "WEAK" {print $7, $8}')
    exported=$(echo "$symbols" | awk '$1 != "UND" {print $2}' | sort)
    imported=$(echo "$symbols" | awk '$1 == "UND" {print $2}')
    expect_same "exported names" "$listed" "$exported"

    allowed='^mem(set|cpy|move)$'
    # The compiler's division routines for 32-bit Arm call raise on a division by zero.
    [ "$machine" != ARM ] || allowed='^(mem(set|cpy|move)|raise)$'
    expect_same "imported names other than fill, copy and move" "" "$(echo "$imported" | without "$allowed")"
}

# What the library asks of the loader. It is bound completely at load, and its references to its own names stay inside.
#  0x0000000000000001 (NEEDED)             Shared library: [libc.so.6]
#  0x000000000000000e (SONAME)             Library soname: [libcvsd_qor]
#  0x000000000000001e (FLAGS)              SYMBOLIC BIND_NOW
#  0x000000006ffffffb (FLAGS_1)            Flags: NOW
check_loading() {
    dynamic=$("$readelf" --dynamic --wide "$library")
    soname=$(echo "$dynamic" | awk '/SONAME/ {print $NF}')
    needed=$(echo "$dynamic" | awk '/NEEDED/ {print $NF}')
    flags=$(echo "$dynamic" | grep -owE 'NOW|SYMBOLIC' | sort -u | paste -sd' ')
    expect_same "soname" "[libcvsd_qor]" "$soname"
    expect_same "needed libraries other than libc" "" "$(echo "$needed" | without '^(\[libc\.so.*)?$')"
    expect_same "text relocations" "" "$(echo "$dynamic" | grep TEXTREL || true)"
    expect_same "binding at load, own names first" "NOW SYMBOLIC" "$flags"
}

# Name, address, size and flags of the sections; W is writable, X executable. Sections without flags have another word
# there.
#   [Nr] Name              Type            Address          Off    Size   ES Flg Lk Inf Al
#   [13] .got              PROGBITS        000000000000afd8 009fd8 000028 08  WA  0   0  8
list_sections() {
    "$readelf" --sections --wide "$library" | sed -n 's/^ *\[ *[0-9]*\] *//p' | awk '{print $1, "0x" $3, "0x" $5, $7}'
}

# The writable sections of which a byte stays writable once the library is loaded: it lies outside of the region that
# the loader then makes read-only (RELRO), bytes $1 to $2. The section named $3 is left out.
writable_after_load() { # START END EXCEPTION
    list_sections | awk '$4 ~ /W/' | while read -r name address size flags; do
        if [ "$name" = "$3" ] || [ $((size)) -eq 0 ]; then
            continue
        fi
        if [ $((address)) -lt "$1" ] || [ $((address + size)) -gt "$2" ]; then
            echo "$name ($flags), $size at $address"
        fi
    done
}

# No data that the library can write, no executable stack.
#   Type           Offset   VirtAddr           PhysAddr           FileSiz  MemSiz   Flg Align
#   LOAD           0x001000 0x0000000000001000 0x0000000000001000 0x00716d 0x00716d R E 0x1000
#   GNU_STACK      0x000000 0x0000000000000000 0x0000000000000000 0x000000 0x000000 RW  0x10
#   GNU_RELRO      0x009e68 0x000000000000ae68 0x000000000000ae68 0x000198 0x000198 R   0x1
check_memory() {
    segments=$("$readelf" --segments --wide "$library")
    start=$(echo "$segments" | awk '$1 == "GNU_RELRO" {print $3}')
    size=$(echo "$segments" | awk '$1 == "GNU_RELRO" {print $6}')
    # The linkers for these machines leave the table of addresses outside of the region. The library has no data in it.
    exception=none
    case $machine in
    *RISC-V* | *MIPS*) exception=.got ;;
    esac
    expect_same "writable data" "" "$(writable_after_load $((start)) $((start + size)) "$exception")"
    # This section is always there, so the list has been read.
    expect_same "flags of .text" "AX" "$(list_sections | awk '$1 == ".text" {print $4}')"

    expect_same "stack flags" "RW" "$(echo "$segments" | awk '$1 == "GNU_STACK" {print $7}')"
    if [ "$machine" = AArch64 ]; then
        alignments=$(echo "$segments" | awk '$1 == "LOAD" {print $NF}')
        for alignment in $alignments; do
            [ $((alignment)) -ge 16384 ] ||
                expect_same "segment alignment, for pages of 16 KiB" "0x4000 or more" "$alignment"
        done
    fi
}

# Sets two patterns by the machine: instructions that compute with floating point, and those among them that only move
# or combine the bits of registers, which the compiler also uses for integers.
choose_float_patterns() {
    moves='^$'
    case $machine in
    *X86-64 | *80386)
        computes='^f|^v?cvt|(ss|sd|ps|pd)$'
        moves='^v?(p|mov|shuf|unpck|andn?|or|xor|blend|insert|extract|broadcast)'
        ;;
    AArch64)
        computes='^f|^[su]cvtf'
        moves='^fmov'
        ;;
    ARM)
        computes='\.f(16|32|64)'
        moves='^vmov'
        ;;
    *S/390) computes='.[edx]bra?$|^(me|ma|ms|sq|[asmdck])[edx]b$|^[vw]f.*[dsx]bs?$|^[vw]c(d|l?g)' ;;
    PowerPC*)
        computes='^f|^x[sv].*[dsq]ps?\.?$|^v.*fp\.?$|^vcf[su]x|^vct[su]xs'
        moves='^fmr|^x[sv](mov|cpsgn)'
        ;;
    *RISC-V)
        computes='^v?f'
        moves='^fence'
        ;;
    *MIPS*)
        computes='\.(s|d|ps)$|^cvt'
        moves='^mov'
        ;;
    *)
        computes='^'
        expect_same "a machine whose floating-point instructions are known" "" "$machine"
        ;;
    esac
}

# No floating point, by instructions or by the compiler's routines for it.
check_floating_point() {
    choose_float_patterns
    # The word after the address; operands and comments are not looked at:
    #     1000:	push   0x9fda(%rip)        # afe0 <_GLOBAL_OFFSET_TABLE_+0x8>
    instructions=$("$objdump" --disassemble --no-show-raw-insn "$library" |
        sed -n 's/^ *[0-9a-f]*:[[:space:]]*\([a-z][^[:space:]]*\).*/\1/p')
    [ "$(echo "$instructions" | wc -l)" -gt 1000 ] ||
        expect_same "disassembly" "some thousand instructions" "$instructions"
    computing=$(echo "$instructions" | grep -E "$computes" | without "$moves" | sort | uniq -c)
    expect_same "floating-point instructions" "" "$computing"

    # By their names: __adddf3, __floatsidf, __fixdfsi, on 32-bit Arm __aeabi_dadd, __aeabi_i2d.
    symbols=$("$readelf" --symbols --wide "$library")
    routines=$(echo "$symbols" | grep -oE ' __(aeabi_([ul]*[il]2)?[df]|float|fix|[a-z]+[sdtx]f[0-9]?$).*' || true)
    expect_same "floating-point routines" "" "$routines"
}

check_names
check_loading
check_memory
check_floating_point
exit $failed
