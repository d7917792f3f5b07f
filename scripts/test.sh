#!/usr/bin/env bash
# Sets up the machine, builds, and runs every test.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh"

echo "== build and unit tests"
"$root/scripts/build.sh" build
(cd "$root/build" && ctest --output-on-failure -j "$(nproc)")
