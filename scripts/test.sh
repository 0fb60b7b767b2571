#!/usr/bin/env bash
# Installs what is missing, then runs the test stages in turn, printing how long each took:
#  asan  builds wavestore under AddressSanitizer + UBSan (the benchmarks too, so that they
#        keep building) and runs all tests, the replay of the fuzz corpora among them;
#  tsan  builds storage_tests and reliability_tests under ThreadSanitizer and runs them;
#  fuzz  builds the libFuzzer targets with clang and runs each on a copy of its corpus,
#        two at a time; a crash, leak or hang fails the run and leaves the input in
#        build/fuzz/runs/<target>/artifacts/.
# WAVESTORE_TEST_TSAN=0 and WAVESTORE_TEST_FUZZ=0 skip a stage, WAVESTORE_FUZZ_SECONDS sets
# the time per fuzz target (60). Arguments go to the ctest run of the asan stage.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${WAVESTORE_TEST_BUILD:-"$root/build/asan"}
tsan_build=${WAVESTORE_TSAN_BUILD:-"$root/build/tsan"}
fuzz_build=${WAVESTORE_FUZZ_BUILD:-"$root/build/fuzz"}
fuzz_seconds=${WAVESTORE_FUZZ_SECONDS:-60}
fuzz_targets=(make_proxy_fuzz xml_declarations_fuzz wave_config_fuzz dataset_record_fuzz)

timings=()
current="" current_start=0
report_timings() {
  [ -n "$current" ] && timings+=("$(printf '%-10s %5d s  (failed)' "$current" $((SECONDS - current_start)))")
  [ ${#timings[@]} -eq 0 ] && return
  echo "== stage timings"
  printf '   %s\n' "${timings[@]}"
}
trap report_timings EXIT

# stage NAME COMMAND...: runs the command and records its time.
stage() {
  current=$1 current_start=$SECONDS
  shift
  echo "== $current"
  "$@"
  timings+=("$(printf '%-10s %5d s' "$current" $((SECONDS - current_start)))")
  current=""
}

asan_stage() {
  cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Debug -DWAVESTORE_SANITIZE=address -DWAVESTORE_BUILD_BENCH=ON \
    -DWAVESTORE_BUILD_APPS=ON
  cmake --build "$build" -j2
  WAVESTORE_STRESS_SECONDS=30 WAVESTORE_KILL_RUNS=100 \
    ctest --test-dir "$build" --output-on-failure -j2 "$@"
}

tsan_stage() {
  cmake -S "$root" -B "$tsan_build" -DCMAKE_BUILD_TYPE=Debug -DWAVESTORE_SANITIZE=thread \
    -DWAVESTORE_BUILD_BENCH=OFF -DWAVESTORE_BUILD_APPS=OFF
  cmake --build "$tsan_build" -j2 --target storage_tests reliability_tests
  # Only these two programs are built here: the placeholders of the others, and the
  # install check (which needs the programs and an uninstrumented consumer), stay out.
  # So do the single-threaded loops over every fault, cut and flipped bit, which check
  # file contents and run under the asan stage: here the threads are what is tested.
  TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1} WAVESTORE_STRESS_SECONDS=60 \
    ctest --test-dir "$tsan_build" --output-on-failure -j2 \
    -E '_NOT_BUILT$|^install_package$|^Faults/EveryCall\.|^PowerLoss\.EveryCut|^MalformedFile\.'
}

# run_fuzzer TARGET: runs it on a fresh copy of its corpus; its log and findings stay in
# build/fuzz/runs/TARGET.
run_fuzzer() {
  local target=$1 work="$fuzz_build/runs/$1"
  rm -rf "$work"
  mkdir -p "$work/corpus" "$work/artifacts"
  cp "$root/tests/fuzz/corpus/$target/"* "$work/corpus/"
  "$fuzz_build/tests/fuzz/$target" -max_total_time="$fuzz_seconds" -timeout=20 -rss_limit_mb=2048 \
    -print_final_stats=1 -artifact_prefix="$work/artifacts/" "$work/corpus" >"$work/log" 2>&1
}

# fuzz_summary TARGET STATUS: one line of figures, or the end of the log on failure.
fuzz_summary() {
  local target=$1 status=$2 work="$fuzz_build/runs/$1"
  local execs rate
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$work/log" | tail -n 1)
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$work/log" | tail -n 1)
  printf '   %-24s status %d, %s execs, %s execs/s, corpus %d -> %d inputs\n' "$target" "$status" \
    "${execs:-?}" "${rate:-?}" "$(ls "$root/tests/fuzz/corpus/$target" | wc -l)" "$(ls "$work/corpus" | wc -l)"
  if [ "$status" -ne 0 ]; then
    tail -n 40 "$work/log"
    ls -l "$work/artifacts"
  fi
}

fuzz_stage() {
  cmake -S "$root" -B "$fuzz_build" -DCMAKE_CXX_COMPILER=clang++ \
    -DCMAKE_BUILD_TYPE=Debug -DWAVESTORE_SANITIZE=address -DCMAKE_CXX_FLAGS="-fsanitize=fuzzer-no-link -O1" \
    -DWAVESTORE_BUILD_BENCH=OFF -DWAVESTORE_BUILD_APPS=OFF
  cmake --build "$fuzz_build" -j2 --target "${fuzz_targets[@]}"
  local failed=0 i
  # Two at a time, one per core.
  for ((i = 0; i < ${#fuzz_targets[@]}; i += 2)); do
    local pair=("${fuzz_targets[@]:i:2}") pids=() target status
    for target in "${pair[@]}"; do
      run_fuzzer "$target" &
      pids+=($!)
    done
    for ((j = 0; j < ${#pair[@]}; ++j)); do
      status=0
      wait "${pids[j]}" || status=$?
      fuzz_summary "${pair[j]}" "$status"
      [ "$status" -eq 0 ] || failed=1
    done
  done
  return $failed
}

"$root/scripts/bootstrap.sh"
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
export LSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=$root/tests/lsan.supp}

stage asan asan_stage "$@"
# Not in an "||" list: a stage must run with errexit in force.
if [ "${WAVESTORE_TEST_TSAN:-1}" != 0 ]; then stage tsan tsan_stage; fi
if [ "${WAVESTORE_TEST_FUZZ:-1}" != 0 ]; then stage fuzz fuzz_stage; fi
