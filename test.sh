#!/usr/bin/env bash
# Runs every test: the native suite, the same suite under ASan+UBSan, the
# threaded parts under TSan, short libFuzzer runs of every parser, a valgrind
# pass over the runner against the real library, and the aarch64 cross build
# under qemu. Installs what is missing first (idempotent).
#
#   ./test.sh                 everything
#   STAGES="native asan" ./test.sh
#   KIRA_SKIP_SLOW=1 ./test.sh   leaves out tests named *Slow* (60 s census, the soak)
set -uo pipefail
cd "$(dirname "$0")"
root=$(pwd)
jobs=${JOBS:-2}
stages=${STAGES:-"native asan tsan fuzz valgrind aarch64"}
fuzz_seconds=${FUZZ_SECONDS:-15}
slow_filter=()
[ -n "${KIRA_SKIP_SLOW:-}" ] && slow_filter=(-E Slow)

bash .ci/install-deps.sh || { echo "dependency installation failed"; exit 1; }

total_pass=0
total_fail=0
failed_stages=()
declare -A stage_time

# ctest's closing line "N% tests passed, F tests failed out of T" feeds the totals.
count_ctest() {
  local log=$1 line t f
  line=$(grep -E 'tests passed, [0-9]+ tests? failed out of [0-9]+' "$log" | tail -n 1)
  [ -z "$line" ] && return
  f=$(sed -E 's/.* ([0-9]+) tests? failed out of ([0-9]+).*/\1/' <<<"$line")
  t=$(sed -E 's/.* ([0-9]+) tests? failed out of ([0-9]+).*/\2/' <<<"$line")
  total_pass=$((total_pass + t - f))
  total_fail=$((total_fail + f))
}

configure_build() {   # dir, targets..., then -- cmake args
  local dir=$1; shift
  local targets=()
  while [ $# -gt 0 ] && [ "$1" != "--" ]; do targets+=("$1"); shift; done
  [ "${1:-}" = "--" ] && shift
  cmake -S "$root" -B "$dir" -G Ninja "$@" >"$dir.configure.log" 2>&1 \
    || { cat "$dir.configure.log"; return 1; }
  ninja -C "$dir" -j "$jobs" "${targets[@]}"
}

run_ctest() {   # dir, extra ctest args
  local dir=$1; shift
  local log="$dir.ctest.log"
  (cd "$dir" && ctest --output-on-failure -j "$jobs" --timeout 600 "$@") 2>&1 | tee "$log" | tail -n 40
  local rc=${PIPESTATUS[0]}
  count_ctest "$log"
  return "$rc"
}

stage_native() {
  configure_build build -- -DCMAKE_BUILD_TYPE=RelWithDebInfo && run_ctest build "${slow_filter[@]}"
}
stage_asan() {
  configure_build build-asan -- -DCMAKE_BUILD_TYPE=Debug -DKIRA_SANITIZE=address -DKIRA_BUILD_BENCH=OFF &&
    ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    run_ctest build-asan -E Slow
}
stage_tsan() {
  # The threaded parts: logging from many threads, atomics, the harness.
  configure_build build-tsan os_log_tests os_base_tests os_sysinfo_tests -- -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DKIRA_SANITIZE=thread -DKIRA_BUILD_BENCH=OFF &&
    TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 run_ctest build-tsan -L 'os_log_tests|os_base_tests|os_sysinfo_tests' -E Slow
}
# One target: its committed seeds (copied, so the repository stays clean)
# and its dictionary, when it has one; the exit status lands in $t.rc.
fuzz_one() {
  local t=$1 name corpus dict=()
  name=$(basename "$t")
  corpus="build-fuzz/corpus/$name"
  mkdir -p "$corpus"
  [ -d "fuzz/corpus/$name" ] && cp -n fuzz/corpus/"$name"/* "$corpus"/
  [ -f "fuzz/$name.dict" ] && dict=(-dict="fuzz/$name.dict")
  "$t" -max_total_time="$fuzz_seconds" -rss_limit_mb=2048 "${dict[@]}" "$corpus" >"$t.log" 2>&1
  echo $? >"$t.rc"
}
stage_fuzz() {
  CC=clang-14 CXX=clang++-14 configure_build build-fuzz -- -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKIRA_BUILD_FUZZ=ON || return 1
  local rc=0 t n=0
  # Each target fuzzes on one core for its whole time; $jobs run side by side.
  for t in build-fuzz/fuzz/*_fuzz; do
    [ -x "$t" ] || continue
    while [ "$(jobs -rp | wc -l)" -ge "$jobs" ]; do wait -n; done
    fuzz_one "$t" &
  done
  wait
  for t in build-fuzz/fuzz/*_fuzz; do
    [ -x "$t" ] || continue
    n=$((n + 1))
    if [ "$(cat "$t.rc" 2>/dev/null)" = 0 ]; then
      echo "fuzz $(basename "$t"): $(grep -E '^Done|stat::number_of_executed_units' "$t.log" | tail -n 1)"
      total_pass=$((total_pass + 1))
    else
      echo "fuzz $(basename "$t") FAILED"; tail -n 60 "$t.log"
      total_fail=$((total_fail + 1)); rc=1
    fi
  done
  echo "fuzz targets run: $n"
  return $rc
}
stage_valgrind() {
  # The real library loaded by the real runner: every default item once, the
  # prefix and wildcard groups, and the memory census.
  [ -x build/tools/runner/zadi_runner ] || configure_build build -- -DCMAKE_BUILD_TYPE=RelWithDebInfo || return 1
  local - rc=0 args
  set -f   # the wildcard patterns below are the runner's, not the shell's
  for args in "--once" "call GetProcessCoreCPUExtern ProcessName=/" "call GetProcessHandleFuzzyMatch ProcessName=*" \
              "census rss"; do
    # shellcheck disable=SC2086
    if valgrind --quiet --error-exitcode=99 --leak-check=full --errors-for-leak-kinds=definite \
         build/tools/runner/zadi_runner $args >build/valgrind.log 2>&1; then
      echo "valgrind: runner $args clean"; total_pass=$((total_pass + 1))
    else
      echo "valgrind: runner $args FAILED"; tail -n 60 build/valgrind.log
      total_fail=$((total_fail + 1)); rc=1
    fi
  done
  # The soak driver: 2,000 calls of every item and census function.
  [ -x build/tests/plugin_tests ] || configure_build build plugin_tests -- -DCMAKE_BUILD_TYPE=RelWithDebInfo || return 1
  if KIRA_SOAK_CALLS=2000 valgrind --quiet --error-exitcode=99 --leak-check=full --errors-for-leak-kinds=definite \
       --suppressions=tests/support/valgrind.supp \
       build/tests/plugin_tests --gtest_filter='Soak.*' >build/valgrind-soak.log 2>&1; then
    echo "valgrind: soak clean"; total_pass=$((total_pass + 1))
  else
    echo "valgrind: soak FAILED"; tail -n 60 build/valgrind-soak.log
    total_fail=$((total_fail + 1)); rc=1
  fi
  return $rc
}
stage_aarch64() {
  local gtest_prefix="$root/build-arm-gtest"
  bash .ci/gtest-aarch64.sh "$gtest_prefix" || return 1
  configure_build build-arm -- -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_TOOLCHAIN_FILE="$root/cmake/aarch64-linux-gnu.cmake" -DKIRA_GTEST_AARCH64_PREFIX="$gtest_prefix" &&
    run_ctest build-arm -E Slow
}

for s in $stages; do
  echo "===== stage $s"
  start=$(date +%s)
  if ! "stage_$s"; then failed_stages+=("$s"); fi
  stage_time[$s]=$(( $(date +%s) - start ))
  echo "===== stage $s took ${stage_time[$s]} s"
done

echo
for s in $stages; do echo "stage $s: ${stage_time[$s]} s"; done
[ ${#failed_stages[@]} -gt 0 ] && echo "failed stages: ${failed_stages[*]}"
echo "${total_pass} passed, ${total_fail} failed"
[ ${#failed_stages[@]} -eq 0 ] && [ "$total_fail" -eq 0 ]
