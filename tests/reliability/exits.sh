#!/usr/bin/env bash
# Runs the exit host RUNS times per way of leaving, at random moments: every run
# must end by itself within 5 s, exit 0 and print no sanitizer report.
#   exits.sh HOST [RUNS]     prints "exits: N passed, N failed"
set -uo pipefail
host=$1
runs=${2:-100}
passed=0
failed=0
log=$(mktemp)
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
for mode in return exit flush static; do
  for ((i = 0; i < runs; i++)); do
    delay=$((RANDOM % 700))
    timeout -k 1 5 "$host" "$mode" "$delay" >"$log" 2>&1
    rc=$?
    if [ $rc -eq 0 ] && ! grep -qE 'Sanitizer|runtime error|WARNING: ThreadSanitizer' "$log"; then
      passed=$((passed + 1))
    else
      failed=$((failed + 1))
      echo "exits: $mode after ${delay} ms: exit $rc" >&2
      tail -n 20 "$log" >&2
    fi
  done
done
rm -f "$log"
echo "exits: $passed passed, $failed failed"
[ $failed -eq 0 ]
