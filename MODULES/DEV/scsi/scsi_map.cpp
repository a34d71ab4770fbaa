#include "DEV.h"
#include "com_log.h"
#include "fd_io.h"
#include "dev_text.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <scsi/scsi.h>
#include <scsi/scsi_ioctl.h>
#include <sys/ioctl.h>

// The four address fields follow each other, so an address compares as one
// block of 16 bytes.
static_assert(offsetof(SgMapEntry, bus) == SG_NAME_SIZE + 4);
static_assert(offsetof(SgMapEntry, lun) == offsetof(SgMapEntry, bus) + 12);
static_assert(sizeof(SgMapEntry) == 32);

extern "C" const char *const gScsiDevTable[SCSI_DEV_TABLE_SIZE + 1] = {
    "/dev/sda",    "/dev/sdb",   "/dev/sdc",    "/dev/sdd",    "/dev/sde",    "/dev/sdf",
    "/dev/sdg",    "/dev/sdh",   "/dev/sdi",    "/dev/sdj",    "/dev/sdk",    "/dev/sdl",
    "/dev/sdm",    "/dev/sdn",   "/dev/sdo",    "/dev/sdp",    "/dev/sdq",    "/dev/sdr",
    "/dev/sds",    "/dev/sdt",   "/dev/sdu",    "/dev/sdv",    "/dev/sdw",    "/dev/sdx",
    "/dev/sdy",    "/dev/sdz",   "/dev/scd0",   "/dev/scd1",   "/dev/scd2",   "/dev/scd3",
    "/dev/scd4",   "/dev/scd5",  "/dev/scd6",   "/dev/scd7",   "/dev/scd8",   "/dev/scd9",
    "/dev/scd10",  "/dev/scd11", "/dev/sr0",    "/dev/sr1",    "/dev/sr2",    "/dev/sr3",
    "/dev/sr4",    "/dev/sr5",   "/dev/sr6",    "/dev/sr7",    "/dev/sr8",    "/dev/sr9",
    "/dev/sr10",   "/dev/sr11",  "/dev/nst0",   "/dev/nst1",   "/dev/nst2",   "/dev/nst3",
    "/dev/nst4",   "/dev/nst5",  "/dev/nosst0", "/dev/nosst1", "/dev/nosst2", "/dev/nosst3",
    "/dev/nosst4", nullptr};

namespace {
using fdio::UniqueFd;

constexpr int kLetterNames = 26;

// host, channel, id, lun: the order of the map entry's fields.
struct Address {
    int32_t fields[4] = {-1, -1, -1, -1};
    bool operator==(const Address &) const = default;
};

enum class AddressStep { kDone, kBusFailed, kIdLunFailed };

// Reads the node's SCSI address; errno tells why a step failed. The bus
// number stays in the address when the second request fails.
AddressStep readAddress(int fd, Address &a)
{
    int bus = -1;
    if (ioctl(fd, SCSI_IOCTL_GET_BUS_NUMBER, &bus) < 0) {
        return AddressStep::kBusFailed;
    }
    a.fields[0] = bus;
    uint32_t idlun[2] = {0, 0};
    if (ioctl(fd, SCSI_IOCTL_GET_IDLUN, idlun) < 0) {
        return AddressStep::kIdLunFailed;
    }
    a.fields[1] = static_cast<int32_t>((idlun[0] >> 16) & 0xFF);
    a.fields[2] = static_cast<int32_t>(idlun[0] & 0xFF);
    a.fields[3] = static_cast<int32_t>((idlun[0] >> 8) & 0xFF);
    return AddressStep::kDone;
}

// Reads the address of a node found by path, reporting a failure with the
// messages of the conversions.
bool readAddressReported(const char *func, int fd, const char *path, Address &a)
{
    switch (readAddress(fd, a)) {
    case AddressStep::kDone:
        return true;
    case AddressStep::kBusFailed:
        COM_LOG_FAILED_CALL(func, "get bus No. on %s failed : %s\n", path);
        return false;
    case AddressStep::kIdLunFailed:
        COM_LOG_FAILED_CALL(func, "get IDLUN on %s failed : %s\n", path);
        return false;
    }
    return false;
}

void storeAddress(SgMapEntry &e, const Address &a)
{
    memcpy(&e.bus, a.fields, sizeof a.fields);
}

Address addressOf(const SgMapEntry &e)
{
    Address a;
    memcpy(a.fields, &e.bus, sizeof a.fields);
    return a;
}

// A result buffer as it may be printed before it was filled: at most a
// name's length of whatever it holds.
struct ResultText {
    char text[SG_NAME_SIZE] = {};
    explicit ResultText(const char *buffer)
    {
        snprintf(text, sizeof text, "%.*s", SG_NAME_SIZE - 1, dev::printable(buffer));
    }
};
} // namespace

void Dev_MakeDevName(char *pName, int k, int numeric)
{
    if (pName == nullptr) {
        return;
    }
    if (numeric != 0) {
        snprintf(pName, SG_NAME_SIZE, "/dev/sg%d", k);
    } else if (k >= 0 && k < kLetterNames) {
        snprintf(pName, SG_NAME_SIZE, "/dev/sg%c", 'a' + k);
    } else {
        COM_LOG(__func__, "k = %d, out of range\n", k);
        snprintf(pName, SG_NAME_SIZE, "/dev/sgxx");
    }
}

int Dev_BuildSgMap(SgMapEntry *pMap)
{
    if (pMap == nullptr) {
        return 0;
    }
    memset(pMap, 0, sizeof(SgMapEntry) * SG_MAP_SIZE);
    int numeric = 1;
    int ready = 0;
    for (int k = 0; k < SG_MAP_SIZE; ++k) {
        SgMapEntry &e = pMap[k];
        storeAddress(e, Address{});
        Dev_MakeDevName(e.name, k, numeric);
        int fd = open(e.name, O_RDWR | O_NONBLOCK);
        // The first node decides the naming of the whole map.
        if (fd < 0 && errno == ENOENT && k == 0) {
            numeric = 0;
            Dev_MakeDevName(e.name, k, numeric);
            fd = open(e.name, O_RDWR | O_NONBLOCK);
        }
        fdio::UniqueFd node(fd);
        if (!node.valid()) {
            continue;
        }
        Address a;
        const AddressStep step = readAddress(node.get(), a);
        storeAddress(e, a);
        if (step == AddressStep::kBusFailed) {
            COM_LOG_FAILED_CALL(__func__, "get bus no on %s failed : %s\n", e.name);
            continue;
        }
        if (step == AddressStep::kIdLunFailed) {
            COM_LOG_FAILED_CALL(__func__, "get IDLUN on %s failed : %s\n", e.name);
            continue;
        }
        e.ready = Dev_TestUnitReady(e.name, node.get());
        ready += e.ready == 1 ? 1 : 0;
    }
    return ready;
}

int Dev_SdToSg(char *pSg, const char *pSd)
{
    if (pSg == nullptr || pSd == nullptr) {
        COM_LOG(__func__, "(%s, %s) : Null ptr\n", ResultText(pSg).text, dev::printable(pSd));
        return -1;
    }
    fdio::UniqueFd block(open(pSd, O_RDONLY | O_NONBLOCK));
    if (!block.valid()) {
        COM_LOG_FAILED_CALL(__func__, "open(%s) failed : %s\n", pSd);
        return -1;
    }
    Address a;
    if (!readAddressReported(__func__, block.get(), pSd, a)) {
        return -1;
    }
    SgMapEntry map[SG_MAP_SIZE];
    Dev_BuildSgMap(map);
    for (const SgMapEntry &e : map) {
        if (addressOf(e) == a) {
            memcpy(pSg, e.name, sizeof e.name);
            if (e.ready != 1) {
                COM_LOG(__func__, "(%s, %s) : device not ready!\n", pSg, pSd);
                return 1;
            }
            return 0;
        }
    }
    return -1;
}

int Dev_SgToSd(char *pSd, const char *pSg)
{
    if (pSg == nullptr || pSd == nullptr) {
        COM_LOG(__func__, "(%s, %s) : Null ptr\n", dev::printable(pSg), ResultText(pSd).text);
        return -1;
    }
    Address wanted;
    int ready = 0;
    {
        fdio::UniqueFd generic(open(pSg, O_RDWR | O_NONBLOCK));
        if (!generic.valid()) {
            COM_LOG_FAILED_CALL(__func__, "open(%s) fail : %s\n", pSg);
            return -1;
        }
        if (!readAddressReported(__func__, generic.get(), pSg, wanted)) {
            return -1;
        }
        ready = Dev_TestUnitReady(pSg, generic.get());
    }
    for (const char *const *path = gScsiDevTable; *path != nullptr; ++path) {
        fdio::UniqueFd node(open(*path, O_RDWR | O_NONBLOCK));
        Address a;
        if (node.valid() && readAddressReported(__func__, node.get(), *path, a) && a == wanted) {
            snprintf(pSd, SG_NAME_SIZE, "%s", *path);
            return ready == 1 ? 0 : 1;
        }
    }
    return -1;
}
