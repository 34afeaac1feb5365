#!/usr/bin/env bash
# Checks that a build runs on any x86-64 processor: no AVX, AVX2, FMA, F16C, AVX-512 or BMI
# instruction outside the AVX2 copies of the kernel units, which run only when the processor has
# them. Looks at every object of the core library and at every function of the plug-in and the
# command (a function copied from the AVX2 units into a shared name would show there).
#   scripts/check-portable.sh [BUILD_DIR]   (default build)
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-${BUILD_DIR:-build}}"

# An instruction line of objdump: address, tab, mnemonic and operands. Forbidden: 256- and 512-bit
# registers, AVX-512 mask registers, VEX and EVEX encoded operations (their mnemonics start with v)
# and the BMI1, BMI2 and LZCNT operations. tzcnt is left out: without BMI1 it runs as bsf, which
# is how the compiler uses it.
forbidden='^\s*[0-9a-f]+:\s+(v[a-z0-9]+|andn|bextr|blsi|blsmsk|blsr|bzhi|mulx|pdep|pext|rorx|sarx|shlx|shrx|lzcnt)\b|%[yz]mm[0-9]|%k[0-7]\b'

status=0

# Library: objects named *Avx2.cpp.o are the AVX2 copies; any other object must be clean.
library="$build/libquelmor_core.a"
[[ -f "$library" ]] || { echo "check-portable: $library not built" >&2; exit 2; }
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
library="$(realpath "$library")"
(cd "$work" && ar x "$library")
kernels=0 clean=0
for object in "$work"/*.o; do
    name="$(basename "$object")"
    if [[ "$name" == *Avx2.cpp.o ]]; then
        kernels=$((kernels + 1))
        continue
    fi
    hits="$(objdump -d --no-show-raw-insn "$object" | grep -E -c "$forbidden" || true)"
    if ((hits > 0)); then
        echo "FAIL $library($name): $hits AVX-class instructions outside a kernel copy"
        objdump -d --no-show-raw-insn "$object" | grep -E "$forbidden" | head -5
        status=1
    else
        clean=$((clean + 1))
    fi
done
echo "library: $clean baseline objects clean, $kernels AVX2 kernel objects"

# Linked binaries: every function with such an instruction must belong to the AVX2 copies.
check_binary() {
    local binary="$1"
    [[ -f "$binary" ]] || { echo "skip $binary (not built)"; return; }
    local report
    report="$(objdump -d -C --no-show-raw-insn "$binary" | awk -v pattern="$forbidden" '
        /^[0-9a-f]+ <.*>:$/ { fn = $0; sub(/^[0-9a-f]+ </, "", fn); sub(/>:$/, "", fn); next }
        $0 ~ pattern { if (!(fn in seen)) { seen[fn] = 1; print fn } }')"
    local allowed outside
    allowed="$(grep -c 'kernels_avx2::' <<<"$report" || true)"
    outside="$(grep -v 'kernels_avx2::' <<<"$report" | grep -c . || true)"
    if ((outside > 0)); then
        echo "FAIL $binary: $outside functions with AVX-class instructions outside the kernels:"
        grep -v 'kernels_avx2::' <<<"$report" | head -20
        status=1
    else
        echo "$binary: $allowed AVX2 kernel functions, none elsewhere"
    fi
}
check_binary "$build/host/quelmor_spark.so"
check_binary "$build/cli/quelmor"

if ((status == 0)); then echo "check-portable: OK"; else echo "check-portable: FAILED"; fi
exit $status
