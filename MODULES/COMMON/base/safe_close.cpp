#include "COMMON.h"

#include <unistd.h>

int COM_SafeClose(int *pFd)
{
    if (pFd == nullptr || *pFd < 0) {
        return -1;
    }
    const int rc = close(*pFd);
    *pFd = -1;
    return rc;
}
