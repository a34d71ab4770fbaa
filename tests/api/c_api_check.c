/* The public headers must stay plain C: this file includes them all as C. */
#include "COMMON.h"
#include "DEV.h"
#include "DNS.h"
#include "DVR_I2C.h"

int dvr_c_api_check(void);

int dvr_c_api_check(void)
{
    I2CTransferRequest req = {0};
    COM_FLAG_NAME flag = {0, ""};
    return (int)(sizeof req + sizeof flag) > 0;
}
