# shellcheck shell=sh
# What the scripts share: steps that show on standard error which one is running and for how long, and that are quiet
# about what goes well. Read with `. scripts/steps.sh` from the repository's root. Gives $temporary, a directory that is
# removed at the end.

unset MAKEFLAGS MFLAGS MAKELEVEL # of a make that runs the script

# The exit code of a command that did not look, and says why.
skipped_code=77

temporary=$(mktemp -d) || exit 1
temporary=$(cd "$temporary" && pwd) # with a TMPDIR that is relative too
clock=
trap 'stop_clock; rm -rf "$temporary"' EXIT
trap 'exit 129' HUP
trap 'exit 130' INT
trap 'exit 143' TERM

# debian: the number of the Debian release that this is, as 12; nothing on another system.
debian() (
  [ -r /etc/os-release ] || exit 0
  # shellcheck source=/dev/null
  . /etc/os-release
  [ "${ID-}" = debian ] && echo "${VERSION_ID:-testing}"
)

# start_clock NAME: says that NAME is running: on a terminal in a line that counts the seconds until stop_clock, otherwise
# in a line of its own.
start_clock() {
  if ! [ -t 2 ] || [ "${TERM:-dumb}" = dumb ]; then
    printf '%s ...\n' "$1" >&2
    return
  fi
  (
    seconds=0
    while kill -0 $$ 2>/dev/null; do # not longer than the script, even if that is killed
      printf '\r\033[K%s ... %ss' "$1" "$seconds" >&2
      sleep 1
      seconds=$((seconds + 1))
    done
  ) &
  clock=$!
}

stop_clock() {
  [ -n "$clock" ] || return 0
  kill "$clock" 2>/dev/null
  wait "$clock" 2>/dev/null
  clock=
  printf '\r\033[K' >&2
}

# timed NAME COMMAND...: runs the command and returns its exit code, left in $status too. Leaves what it printed in
# $temporary/log and shows it if the command fails; leaves ok, FAILED or skipped in $result, how long it took in $seconds.
timed() {
  name=$1
  shift
  start_clock "$name"
  begun=$(date +%s)
  status=0
  "$@" >"$temporary/log" 2>&1 </dev/null || status=$?
  stop_clock
  seconds=$(($(date +%s) - begun))
  case $status in
    0) result=ok ;;
    "$skipped_code") result=skipped ;;
    *) result=FAILED ;;
  esac
  # The style is judged on Debian 12: there CI must not pass without having looked.
  if [ "$result" = skipped ] && [ "${CI:-false}" != false ] && [ "$(debian)" = 12 ]; then
    result=FAILED
  fi
  if [ "$result" = FAILED ]; then
    printf '\n--- %s ---\n' "$name"
    cat "$temporary/log"
    printf -- '--- end of: %s ---\n\n' "$name"
  fi >&2
  printf '%s: %s, %ss\n' "$name" "$result" "$seconds" >&2
  return "$status"
}

passed=0
failed=0
skipped=0
table=
all_begun=$(date +%s)

# step NAME COMMAND...: a timed command that is counted and gets a line in the table. Lines of its output that begin with
# "told: " go there too.
step() {
  timed "$@" || true
  case $result in
    ok) passed=$((passed + 1)) ;;
    FAILED) failed=$((failed + 1)) ;;
    skipped) skipped=$((skipped + 1)) ;;
  esac
  told=$(sed -n 's/.*tests failed out of \([0-9]*\)$/\1 tests/p; s/^told: //p
    /^[0-9]* passed, [0-9]* failed/p' "$temporary/log" | paste -sd ' ')
  table="$table$(printf '%-52s %-7s %5ss  %s' "$name" "$result" "$seconds" "$told")
"
}

# end_steps: prints the table, and what passed and failed as the last line; fails if a step failed.
end_steps() {
  printf '\n%s\n%s seconds in all\n%d passed, %d failed' "$table" "$(($(date +%s) - all_begun))" "$passed" "$failed"
  [ "$skipped" -eq 0 ] || printf ', %d skipped' "$skipped"
  printf '\n'
  [ "$failed" -eq 0 ]
}
