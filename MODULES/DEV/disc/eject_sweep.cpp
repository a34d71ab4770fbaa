// The sweep that ejects CD-ROMs from the USB optical drives: a CD-ROM is the
// disc the recorder can't export to, so it is handed back to the user.
#include "DEV.h"
#include "com_log.h"
#include "fd_io.h"

#include <cstring>
#include <fcntl.h>

namespace {

// The overview's result for a disc that can't be exported to.
constexpr int kUnusableDisc = -130;
constexpr int kNotReady = -129;

// The first steps of the disc overview, which are all the sweep looks at:
// whether a medium is ready, the drive's model for the log, and the class of
// the disc, which fills the type fields of the record's DiscInfo. Gives 0 for
// a disc that can be exported to, -130 for one that can't, -129 without a
// medium and -1 when the generic node doesn't open.
int discOverview(DevRecord *pDev)
{
    fdio::UniqueFd sg(open(pDev->sg, O_RDWR | O_NONBLOCK));
    if (!sg.valid()) {
        COM_LOG_FAILED_CALL(__func__, "open(%s/%s) fail : %s\n", pDev->dev, pDev->sg);
        return -1;
    }
    memset(&pDev->info, 0, sizeof pDev->info);
    pDev->ready = static_cast<uint8_t>(Dev_TestUnitReady(pDev->dev, sg.get()));
    if (pDev->ready == 0) {
        return kNotReady;
    }
    Dev_Inquiry(pDev->dev, sg.get(), nullptr);
    if (Dev_GetConfiguration(pDev->dev, sg.get(), &pDev->info.disc) == 0) {
        COM_LOG(__func__, "(%s,%s) : Unknown/Unsupport CD/DVD Specs\n", pDev->dev, pDev->sg);
        return kUnusableDisc;
    }
    return 0;
}

// A USB optical drive whose disc can't be exported to and classifies as a
// CD-ROM. A drive that didn't answer GET CONFIGURATION leaves the same type
// fields and is taken as well.
bool holdsCdRom(DevRecord &r)
{
    return r.iface == DEV_IFACE_USB && r.cdrom == 1 && discOverview(&r) == kUnusableDisc &&
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
