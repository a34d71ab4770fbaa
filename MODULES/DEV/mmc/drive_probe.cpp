#include "DEV.h"
#include "com_log.h"
#include "dev_endian.h"
#include "mmc_request.h"
#include "dev_text.h"

#include <cstdio>
#include <unistd.h>

namespace {
using dev::MmcRequest;

constexpr int kReadyTries = 3;
constexpr unsigned kReadyPauseSeconds = 1;
// Buffers up to 1 MiB are not worth a number in the log.
constexpr uint32_t kSmallBuffer = 0x100000;
constexpr int kMiBShift = 20;
// Vendor (8) and product (16) of the standard inquiry data.
constexpr size_t kModelPositions = DEV_INQUIRY_MODEL_SIZE - 1;

struct Profile {
    uint16_t number;
    const char *message;
    int32_t type1;
    int32_t type2;
    int32_t type3;
    int supported;
};

// The media the recorder knows, with the three type fields each one sets.
constexpr Profile kProfiles[] = {
    {0x0008, "It's CD-ROM and CANNOT be used for export!\n", DISC_TYPE1_CD, DISC_TYPE2_ROM, 0, 0},
    {0x0009, "It's CD-R and supported!\n", DISC_TYPE1_CD, DISC_TYPE2_R, 0, 1},
    {0x000A, "It's CD-RW and supported!\n", DISC_TYPE1_CD, DISC_TYPE2_RW, 0, 1},
    {0x0010, "It's DVD-ROM and supported!\n", DISC_TYPE1_DVD_ROM, DISC_TYPE2_ROM, 0, 1},
    {0x0011, "It's DVD-R Sequential Recording and supported!\n", DISC_TYPE1_DVD_MINUS, DISC_TYPE2_R,
     0, 1},
    {0x0012, "It's DVD-RAM but NOT supported!\n", DISC_TYPE1_DVD_RAM, DISC_TYPE2_RAM, 0, 0},
    {0x0013, "It's DVD-RW Restricted Overwrite and supported!\n", DISC_TYPE1_DVD_MINUS,
     DISC_TYPE2_RW, DISC_TYPE3_RESTRICTED_OVERWRITE, 1},
    {0x0014, "It's DVD-RW Sequential Recording and supported!\n", DISC_TYPE1_DVD_MINUS,
     DISC_TYPE2_RW, DISC_TYPE3_SEQUENTIAL, 1},
    {0x001A, "It's DVD+RW and supported!\n", DISC_TYPE1_DVD_PLUS, DISC_TYPE2_RW, 0, 1},
    {0x001B, "It's DVD+R and supported!\n", DISC_TYPE1_DVD_PLUS, DISC_TYPE2_R, 0, 1},
    {0x0020, "It's DDCD-ROM and CANNOT be used for export!\n", DISC_TYPE1_DDCD, DISC_TYPE2_ROM, 0,
     0},
    {0x0021, "It's DDCD-R but NOT supported!\n", DISC_TYPE1_DDCD, DISC_TYPE2_R, 0, 0},
    {0x0022, "It's DDCD-RW but NOT supported!\n", DISC_TYPE1_DDCD, DISC_TYPE2_RW, 0, 0},
    {0x0040, "It's BD-ROM and supported!\n", DISC_TYPE1_BD, DISC_TYPE2_ROM, 0, 1},
};
} // namespace

int Dev_TestUnitReady(const char *pName, int fd)
{
    MmcRequest r;
    r.prepare(pName, "TEST UNIT READY", {0x00, 0, 0, 0, 0, 0}, 0);
    for (int i = 0; i < kReadyTries; ++i) {
        if (r.issue(fd, 0) == 0) {
            return 1;
        }
        sleep(kReadyPauseSeconds);
    }
    return 0;
}

int Dev_ReadBufferCapacity(const char *pName, int fd)
{
    MmcRequest r;
    r.prepare(pName, "READ BUFFER CAPACITY", {0x5C, 0, 0, 0, 0, 0, 0, 0, 0x0C, 0}, 12);
    if (r.issue(fd, 0) != 0) {
        return 0;
    }
    const uint32_t bytes = dev::be::get32(r.reply + 4);
    if (bytes > kSmallBuffer) {
        // Rounded up in 64 bits: lengths above 0xFFF00000 would wrap in 32.
        const auto mib = static_cast<int>((uint64_t{bytes} + (1u << kMiBShift) - 1) >> kMiBShift);
        COM_LOG(__func__, "buffer_size = %d MB\n", mib);
    } else {
        COM_LOG(__func__, "buffer_size = ???\n");
    }
    return 1;
}

int Dev_Inquiry(const char *pName, int fd, char *pModel)
{
    MmcRequest r;
    r.prepare(pName, "INQUIRY", {0x12, 0, 0, 0, 0x60, 0}, 96);
    if (r.issue(fd, 0) != 0) {
        return 0;
    }
    const auto *data = reinterpret_cast<const char *>(r.reply);
    COM_LOG(nullptr, "[%s] : pModel = %p\n", dev::printable(pName), static_cast<void *>(pModel));
    COM_LOG(nullptr, "Vendor          = %.8s\n", data + 8);
    COM_LOG(nullptr, "Product ID      = %.16s\n", data + 16);
    COM_LOG(nullptr, "Revision        = %.4s\n", data + 32);
    if (pModel != nullptr) {
        snprintf(pModel, DEV_INQUIRY_MODEL_SIZE, "%.24s", data + 8);
        dev::compactModelText(pModel, kModelPositions);
        COM_LOG(nullptr, "pModel = [%s]\n", pModel);
    }
    return 1;
}

int Dev_GetConfiguration(const char *pName, int fd, DiscInfo *pInfo)
{
    if (pInfo == nullptr) {
        return 0;
    }
    pInfo->type1 = DISC_TYPE1_CD;
    pInfo->type2 = DISC_TYPE2_ROM;
    pInfo->type3 = 0;

    MmcRequest r;
    r.prepare(pName, "GET CONFIGURATION", {0x46, 0x01, 0, 0, 0, 0, 0, 0, 0x08, 0}, 8);
    if (r.issue(fd, 1) != 0) {
        return 0;
    }
    const uint16_t current = dev::be::get16(r.reply + 6);
    for (const Profile &p : kProfiles) {
        if (p.number == current) {
            COM_LOG(__func__, "%s", p.message);
            pInfo->type1 = p.type1;
            pInfo->type2 = p.type2;
            pInfo->type3 = p.type3;
            return p.supported;
        }
    }
    COM_LOG(__func__, "Disc type(0x%04X) unreconfized and unsupported!\n", current);
    return 0;
}
