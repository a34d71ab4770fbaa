#include "DEV.h"

#include <rpc/xdr.h>

int Dev_XdrDirPath(struct __rpc_xdr *xdrs, char **pPath)
{
    return xdr_string(xdrs, pPath, DEV_NFS_PATH_MAX);
}
