#!/usr/bin/env bash
# The tests of the workers under ThreadSanitizer: no two threads may touch the same bytes without an order between them.
# Usage: scripts/threads.sh
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=lib/setup.sh
source "$(dirname "$0")/lib/setup.sh"

quarry_need build test clang
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

quarry_say "a planted fault"
cat >"$work/planted.cpp" <<'END'
#include <thread>
int main() {
    int count = 0;
    std::thread other([&count] { ++count; });
    ++count;
    other.join();
    return count - 2;
}
END
clang++ -std=c++20 -O0 -fsanitize=thread "$work/planted.cpp" -o "$work/planted"
if "$work/planted" 2>"$work/complaints"; then
    echo "FAILED: ThreadSanitizer did not complain of a race" >&2
    exit 1
fi
grep -q 'WARNING: ThreadSanitizer: data race' "$work/complaints" || { cat "$work/complaints" >&2; exit 1; }
echo "found"

quarry_build threads unit_threads
quarry_say "testing: threads"
for _ in 1 2 3; do
    "$QUARRY_ROOT/build/threads/tests/unit_threads" --gtest_brief=1
done
