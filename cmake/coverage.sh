#!/usr/bin/env bash
# Runs the library's tests in a coverage build and prints which of its lines they
# reach. Fails when a test does, or when they reach less than $least per cent.
#
#   coverage.sh SOURCE_DIRECTORY BUILD_DIRECTORY PROGRAM...
set -euo pipefail
source=$1 build=$2
shift 2
least=95
folders=(expand quota frame control migrate)

# Counters add up over runs.
find "$build" -name '*.gcda' -delete
for program; do
    timeout 600 "$program" --gtest_brief=1
done

filters=() objects=("$build/tests")
for folder in "${folders[@]}"; do
    filters+=(-f "$source/$folder/")
    objects+=("$build/$folder")
done
# The last column has the numbers of the lines that no test reaches.
exec gcovr -r "$source" --object-directory "$build" "${filters[@]}" \
    --fail-under-line "$least" "${objects[@]}"
