# Several tests at a time. Each writes its verdict, "passed" or "FAILED", into the file
# $work/results/NAME; what one prints appears in one piece when it has come to its end.
# shellcheck shell=bash

work=$(mktemp -d)
mkdir "$work/results"
trap 'kill $(jobs -p) 2>/dev/null || true; wait; rm -rf "$work"' EXIT

show_in_one_piece() {
  "$1" "$2" >"$work/$2.log" 2>&1
  cat "$work/$2.log"
}

# side_by_side JOBS FUNCTION NAME...: calls the function with each name, so many at a time;
# one alone, or one after the other, is shown as it goes.
side_by_side() {
  local jobs=$1 run=$2 name
  shift 2
  for name in "$@"; do
    if [ $# = 1 ] || [ "$jobs" = 1 ]; then
      "$run" "$name"
    else
      while [ "$(jobs -pr | wc -l)" -ge "$jobs" ]; do wait -n || true; done
      show_in_one_piece "$run" "$name" &
    fi
  done
  wait
}

failed_names() { (cd "$work/results" && grep -lx FAILED -- *) || true; }

# again_by_itself FUNCTION: calls it once more with each name that has failed beside others,
# as much of what tests see is a matter of time. The file that QX_REMARKS names is told of
# each, however it ends.
again_by_itself() {
  local name names verdict
  mapfile -t names < <(failed_names)
  for name in "${names[@]}"; do
    # What has no log was by itself.
    [ -e "$work/$name.log" ] || continue
    cp "$work/$name.log" "$work/$name.beside.log"
    printf 'Again, by itself: %s\n' "$name"
    show_in_one_piece "$1" "$name"
    verdict=$(cat "$work/results/$name")
    {
      printf '%s failed beside others; by itself: %s. The end of what it said first:\n' "$name" "$verdict"
      tail -n 30 "$work/$name.beside.log"
      [ "$verdict" = passed ] || { echo "And by itself:" && tail -n 30 "$work/$name.log"; }
    } >>"${QX_REMARKS:-/dev/null}"
  done
}

# conclude_all TITLE: how many passed; false when one has failed.
conclude_all() {
  local passed failed
  passed=$(grep -lx passed "$work"/results/* | wc -l || true)
  failed=$(failed_names | paste -sd' ')
  [ -z "$failed" ] || printf 'Failed: %s\n' "$failed"
  printf '%s: %d passed, %d failed\n' "$1" "$passed" "$(wc -w <<<"$failed")"
  [ -z "$failed" ]
}
