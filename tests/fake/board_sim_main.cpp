// The I2C tool on a simulated board: the real tool and library linked with
// the fake platform, for developers without hardware. Never installed on a
// board. The simulated chips keep their contents in a state file between
// runs: $DVR_I2C_SIM_STATE, or "dvr_i2c_sim.state" in the working directory.
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "DVR_I2C.h"
#include "fake_board.h"

int main(int argc, char **argv)
{
    const char *env = getenv("DVR_I2C_SIM_STATE");
    const std::string statePath = env != nullptr && env[0] != '\0' ? env : "dvr_i2c_sim.state";

    auto board = std::make_shared<fake::Board>();
    board->load(statePath);
    fake::addDevice(ZL740_DRIVER_PATH, board);

    const int rc = DVR_I2CToolMain(argc, argv);
    fflush(stdout);
    if (!board->save(statePath)) {
        fprintf(stderr, "simulator: cannot save state to %s\n", statePath.c_str());
    }
    return rc;
}
