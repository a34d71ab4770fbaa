#!/usr/bin/env bash
# The main job: installs what is missing, builds, and runs the I2C tool on the
# simulated board (until a real board is attached): the example batch file
# under -v, then a single write and a single read.
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/install-deps.sh
cmake --preset host >/dev/null
cmake --build --preset host --target dvr_i2c_sim dvr_i2c

sim=build/host/tests/dvr_i2c_sim
export DVR_I2C_SIM_STATE=${DVR_I2C_SIM_STATE:-build/host/dvr_i2c_sim.state}
echo "== $sim -v -f examples/demo.batch   (simulated board, state in $DVR_I2C_SIM_STATE)"
"$sim" -v -f examples/demo.batch
echo "== $sim -v 6C 46 7E"
"$sim" -v 6C 46 7E
echo "== $sim -v 6C 46"
"$sim" -v 6C 46
