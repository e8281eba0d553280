#!/bin/sh
# Installs dependencies, builds, and starts the simulated panel with the driver.
# Arguments are passed to the simulator (commands such as poll, 'BACKLIGHTOFF()', 'write 5 0').
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
say() { echo "sim.sh: $*" >&2; }
say "checking the build dependencies (installs missing Debian packages, as root)..."
"$top/scripts/deps.sh"
[ -x "$top/build/bin/krv-sim" ] && what="bringing build/ up to date" ||
    what="building the driver and the simulator into build/ (about 1.5 minutes on two cores)"
say "$what..."
"$top/scripts/build.sh" "$top/build" >/dev/null
say "starting the simulated panel (build/bin/krv-sim; help lists its commands)"
exec "$top/build/bin/krv-sim" "$@"
