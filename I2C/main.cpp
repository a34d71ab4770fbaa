#include "DVR_I2C.h"

int main(int argc, char **argv)
{
    return DVR_I2CToolMain(argc, argv);
}
