#!/usr/bin/env bash
# Sets up the machine, builds the module, the stand-in host and the command-line
# host, and runs the bundled example through the module.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh"
cmake -S "$root" -B "$root/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$root/build" --target tarnpb -j "$(nproc)" >/dev/null
exec "$root/build/tools/tarnpb" demo
