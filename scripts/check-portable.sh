#!/usr/bin/env bash
# Checks that a build runs on any x86-64 processor: no AVX, AVX2, FMA, F16C, AVX-512 or BMI
# instruction outside the AVX2 and AVX-512 copies of the kernel units, which run only when the
# processor has them, and no AVX-512 instruction in the AVX2 copies. Looks at every object of the
# core library and at every function of the plug-in, the command and its commands library (a
# function copied from a kernel copy into a shared name would show there).
#   scripts/check-portable.sh [BUILD_DIR]   (default build)
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-${BUILD_DIR:-build}}"

# An instruction line of objdump: address, tab, mnemonic and operands. Forbidden: 256- and 512-bit
# registers, AVX-512 mask registers, VEX and EVEX encoded operations (their mnemonics start with v)
# and the BMI1, BMI2 and LZCNT operations. tzcnt is left out: without BMI1 it runs as bsf, which
# is how the compiler uses it.
forbidden='^\s*[0-9a-f]+:\s+(v[a-z0-9]+|andn|bextr|blsi|blsmsk|blsr|bzhi|mulx|pdep|pext|rorx|sarx|shlx|shrx|lzcnt)\b|%[yz]mm[0-9]|%k[0-7]\b'
# AVX-512 alone: 512-bit registers, mask registers and the sixteen vector registers only EVEX
# encodings reach.
avx512='%zmm[0-9]|%k[0-7]\b|%[xy]mm(1[6-9]|2[0-9]|3[01])\b'

status=0

# Library: objects named *Avx2.cpp.o and *Avx512.cpp.o are the kernel copies; any other object
# must be clean, and the AVX2 copies must hold no AVX-512 instruction.
library="$build/libquelmor_core.a"
[[ -f "$library" ]] || { echo "check-portable: $library not built" >&2; exit 2; }
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
library="$(realpath "$library")"
(cd "$work" && ar x "$library")
avx2=0 avx512kernels=0 clean=0
for object in "$work"/*.o; do
    name="$(basename "$object")"
    if [[ "$name" == *Avx512.cpp.o ]]; then
        avx512kernels=$((avx512kernels + 1))
        continue
    fi
    pattern="$forbidden"
    what="AVX-class instructions outside a kernel copy"
    if [[ "$name" == *Avx2.cpp.o ]]; then
        avx2=$((avx2 + 1))
        pattern="$avx512"
        what="AVX-512 instructions in an AVX2 kernel copy"
    fi
    hits="$(objdump -d --no-show-raw-insn "$object" | grep -E -c "$pattern" || true)"
    if ((hits > 0)); then
        echo "FAIL $library($name): $hits $what"
        objdump -d --no-show-raw-insn "$object" | grep -E "$pattern" | head -5 || true
        status=1
    elif [[ "$name" != *Avx2.cpp.o ]]; then
        clean=$((clean + 1))
    fi
done
echo "library: $clean baseline objects clean, $avx2 AVX2 kernel objects (no AVX-512)," \
    "$avx512kernels AVX-512 kernel objects"

# Linked binaries: every function with such an instruction must belong to a kernel copy, and
# those of the AVX2 copy must hold no AVX-512 instruction.
check_binary() {
    local binary="$1"
    [[ -f "$binary" ]] || { echo "skip $binary (not built)"; return; }
    # Each instruction line with its function's name appended, so that grep, not awk (whose
    # regular expressions lack \s and \b), applies the patterns. Files, not variables: the
    # disassembly of a binary runs to a hundred megabytes.
    local lines="$work/lines" report
    objdump -d -C --no-show-raw-insn "$binary" | awk '
        /^[0-9a-f]+ <.*>:$/ { fn = $0; sub(/^[0-9a-f]+ </, "", fn); sub(/>:$/, "", fn); next }
        { print $0 "\t@@" fn }' >"$lines"
    report="$( (grep -E "$forbidden" "$lines" || true) | sed 's/.*\t@@//' | sort -u
        (grep -E "$avx512" "$lines" || true) | sed 's/.*\t@@//' | sort -u |
            (grep 'kernels_avx2::' || true) | sed 's/^/AVX-512 /')"
    rm -f "$lines"
    local kernels='kernels_avx(2|512)::'
    local allowed outside wide
    allowed="$(grep -v '^AVX-512 ' <<<"$report" | grep -E -c "$kernels" || true)"
    outside="$(grep -v '^AVX-512 ' <<<"$report" | grep -E -v "$kernels" | grep -c . || true)"
    wide="$(grep -c '^AVX-512 ' <<<"$report" || true)"
    if ((outside > 0)); then
        echo "FAIL $binary: $outside functions with AVX-class instructions outside the kernels:"
        grep -v '^AVX-512 ' <<<"$report" | grep -E -v "$kernels" | head -20
        status=1
    elif ((wide > 0)); then
        echo "FAIL $binary: $wide functions of the AVX2 kernels with AVX-512 instructions:"
        grep '^AVX-512 ' <<<"$report" | head -20
        status=1
    else
        echo "$binary: $allowed kernel functions (AVX2 or AVX-512), none elsewhere"
    fi
}
check_binary "$build/host/quelmor_spark.so"
check_binary "$build/cli/quelmor"
check_binary "$build/cli/libquelmor_commands.so"

if ((status == 0)); then echo "check-portable: OK"; else echo "check-portable: FAILED"; fi
exit $status
