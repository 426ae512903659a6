# Sourced by fuzz/run_smoke and fuzz/run_long: the build of the targets, the seed corpus, and
# one libFuzzer run of a target.
fuzz_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
fuzz_dir=$fuzz_root/fuzz
fuzz_build=${BUILD_DIR:-$fuzz_root/build-fuzz}
fuzz_targets=(scan container vmdk disk_start options date_text ewf webcache ese_pages image)
# libewf leaks in one of its own paths (fuzz/findings/README.md); every other leak is still reported.
export LSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=$fuzz_dir/lsan.supp:print_suppressions=0}

# Answers non-zero, with the reason on standard output, when this machine can't fuzz.
fuzz_can_build() {
    if ! command -v clang++ > /dev/null; then
        echo "clang++ is not installed"
        return 1
    fi
    local probe
    probe=$(mktemp -d)
    printf 'extern "C" int LLVMFuzzerTestOneInput(const unsigned char*, unsigned long) { return 0; }\n' > "$probe/p.cpp"
    if ! clang++ -fsanitize=fuzzer,address,undefined "$probe/p.cpp" -o "$probe/p" > /dev/null 2>&1; then
        rm -rf "$probe"
        echo "clang++ can't link libFuzzer (install libclang-rt-dev for this clang)"
        return 1
    fi
    rm -rf "$probe"
}

# Configures and builds the targets (-j2), then writes the seeds into fuzz/corpus/<target>/.
fuzz_build_all() {
    mkdir -p "$fuzz_dir/logs"
    cmake -S "$fuzz_dir" -B "$fuzz_build" -DCMAKE_CXX_COMPILER=clang++ > "$fuzz_dir/logs/build.log" 2>&1 &&
        cmake --build "$fuzz_build" -j2 >> "$fuzz_dir/logs/build.log" 2>&1 ||
        { tail -30 "$fuzz_dir/logs/build.log"; echo "fuzz: build failed (see fuzz/logs/build.log)"; return 1; }
    "$fuzz_build/make_bench_inputs" seeds "$fuzz_dir/corpus" > /dev/null ||
        { echo "fuzz: writing the seed corpus failed"; return 1; }
    fuzz_webcache_seeds
}

# The webcache seeds, in the target's form (a 2-byte slot number, then the page): the pages of the real
# database beside the project that its rows are read from (each found by zeroing it and seeing the rows
# change), and its header and catalog alone; the sample itself is not copied into the project. Without
# it, a bare header.
fuzz_webcache_seeds() {
    local sample=$fuzz_root/../shared/fixtures/real/WebCache/WebCacheV01.dat seeds=$fuzz_dir/corpus/webcache
    mkdir -p "$seeds"
    webcache_pages() {
        local slot
        for slot in "$@"; do
            printf "\\x$(printf %02x $((slot & 255)))\\x$(printf %02x $((slot >> 8)))"
            dd if="$sample" bs=32768 skip="$slot" count=1 status=none
        done
    }
    if [[ -f $sample ]]; then
        webcache_pages 0 1 5 14 15 48 78 88 98 178 203 326 336 366 376 386 396 427 432 448 450 451 452 \
            > "$seeds/sample-rows"
        webcache_pages 0 1 5 14 15 > "$seeds/sample-catalog"
    fi
    # The page walk's seeds: a leaf page of Container_11 and one of Container_1, raw.
    mkdir -p "$fuzz_dir/corpus/ese_pages"
    if [[ -f $sample ]]; then
        dd if="$sample" bs=32768 skip=44 count=1 status=none > "$fuzz_dir/corpus/ese_pages/sample-container-11"
        dd if="$sample" bs=32768 skip=450 count=1 status=none > "$fuzz_dir/corpus/ese_pages/sample-container-1"
    fi
    { printf '\x00\x00'; head -c 240 /dev/zero; } > "$seeds/header"
    printf '\xef\xcd\xab\x89' | dd of="$seeds/header" bs=1 seek=6 conv=notrunc status=none
    printf '\x00\x80\x00\x00' | dd of="$seeds/header" bs=1 seek=238 conv=notrunc status=none
}

# A scratch folder for one run, in memory where the host has /dev/shm: the options target may
# open the files its arguments name (-out, -diags).
fuzz_scratch() {
    if [[ -d /dev/shm && -w /dev/shm ]]; then mktemp -d -p /dev/shm; else mktemp -d; fi
}

# fuzz_replay TARGET LOG: runs each saved finding of TARGET (fuzz/findings/TARGET-*) once, as a
# regression check; answers non-zero when one fails again. Prints how many there were.
fuzz_replay() {
    local target=$1 log=$2 input scratch status inputs=()
    for input in "$fuzz_dir/findings/$target"-*; do
        [[ -f $input ]] && inputs+=("$input")
    done
    echo "${#inputs[@]}"
    (( ${#inputs[@]} )) || { : > "$log"; return 0; }
    scratch=$(fuzz_scratch)
    (cd "$scratch" && TMPDIR=$scratch UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1} \
        "$fuzz_build/fuzz_$target" -timeout=10 -rss_limit_mb=2048 "${inputs[@]}") > "$log" 2>&1
    status=$?
    rm -rf "$scratch"
    return $status
}

# fuzz_run TARGET SECONDS LOG [libFuzzer flags...]: one process. New inputs go to fuzz/corpus-run/,
# crashes to fuzz/artifacts/; the target runs in a scratch folder (also its TMPDIR) removed afterwards.
fuzz_run() {
    local target=$1 seconds=$2 log=$3
    shift 3
    local scratch status dict=()
    scratch=$(fuzz_scratch)
    mkdir -p "$fuzz_dir/corpus-run/$target" "$fuzz_dir/artifacts"
    [[ -f $fuzz_dir/dict/$target.dict ]] && dict=(-dict="$fuzz_dir/dict/$target.dict")
    (cd "$scratch" && TMPDIR=$scratch UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1} \
        "$fuzz_build/fuzz_$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -close_fd_mask=3 \
        -print_final_stats=1 -artifact_prefix="$fuzz_dir/artifacts/$target-" "${dict[@]}" "$@" \
        "$fuzz_dir/corpus-run/$target" "$fuzz_dir/corpus/$target") > "$log" 2>&1
    status=$?
    rm -rf "$scratch"
    return $status
}
