#!/bin/sh
# Installs dependencies, builds, and starts the simulated panel with the driver.
# Arguments are passed to the simulator (commands such as poll, 'BACKLIGHTOFF()', 'write 5 0').
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/deps.sh"
"$top/scripts/build.sh" "$top/build" >/dev/null
exec "$top/build/bin/krv-sim" "$@"
