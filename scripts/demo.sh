#!/usr/bin/env bash
# Sets up the machine, builds, and runs the bundled example through the module.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh"
"$root/scripts/build.sh" build -DTARN_BUILD_TESTS=OFF >/dev/null
exec "$root/build/tools/tarnpb" demo
