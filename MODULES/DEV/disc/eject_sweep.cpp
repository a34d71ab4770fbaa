// The sweep that ejects CD-ROMs from the USB optical drives: a CD-ROM is the
// disc the recorder can't export to, so it is handed back to the user.
#include "DEV.h"
#include "fd_io.h"

#include <cstring>
#include <fcntl.h>

namespace {

// The overview's result for a disc that can't be exported to.
constexpr int kUnusableDisc = -130;

// A USB optical drive whose disc can't be exported to and classifies as a
// CD-ROM. A drive that didn't answer GET CONFIGURATION leaves the same type
// fields and is taken as well.
bool holdsCdRom(DevRecord &r)
{
    return r.iface == DEV_IFACE_USB && r.cdrom == 1 && Dev_GetDiscInfo(&r) == kUnusableDisc &&
           r.info.disc.type1 == DISC_TYPE1_CD && r.info.disc.type2 == DISC_TYPE2_ROM;
}

} // namespace

int Dev_EjectUsbCdrom(void)
{
    DevRecord devs[DEV_MAX_DEVICES];
    memset(devs, 0, sizeof devs);
    Dev_RescanScsiBus();
    const int count = Dev_Get(devs);
    int result = -1;
    for (int i = 0; i < count; ++i) {
        DevRecord &r = devs[i];
        if (!holdsCdRom(r)) {
            continue;
        }
        fdio::UniqueFd node(open(r.dev, O_RDONLY | O_NONBLOCK));
        if (!node.valid()) {
            continue;
        }
        if (EjectCdrom(r.dev, node.get()) == 0 || EjectScsi(r.dev, node.get()) == 0) {
            result = 0;
        }
    }
    return result;
}
