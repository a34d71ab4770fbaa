// The guest side of the real-kernel lane: runs the device operations against
// the drives QEMU emulates and prints what they give. run_lane.sh compares the
// text with expected.txt. Each check is a row of kChecks.
#include "DEV.h"
#include "mmc_request.h"

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <initializer_list>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace {

// The guest's drives: sda ext4 + vfat partitions, sdb whole-disk ext2, sdc the
// USB disk (vfat), sr0 the DVD image, sr1 the CD image, sr2 empty, sr3 the
// USB CD drive.
constexpr int kSgNodes = 7;

DevRecord gDevs[DEV_MAX_DEVICES];
int gCount;

void devGet()
{
    gCount = Dev_Get(gDevs);
    printf("count %d\n", gCount);
    for (const char *node : {"/dev/sdd", "/dev/sdq", "/dev/sdz"}) {
        struct stat st {};
        const bool made = stat(node, &st) == 0 && S_ISBLK(st.st_mode);
        printf("%s %s %u:%u\n", node, made ? "block" : "missing", major(st.st_rdev),
               minor(st.st_rdev));
    }
    const auto left = std::distance(std::filesystem::directory_iterator("/var"), {});
    printf("left in /var: %ld\n", static_cast<long>(left));
}

void sgMap()
{
    SgMapEntry map[SG_MAP_SIZE];
    printf("ready %d\n", Dev_BuildSgMap(map));
    for (const SgMapEntry &e : map) {
        if (e.bus >= 0) {
            printf("%s ready %d at %d:%d:%d:%d\n", e.name, e.ready, e.bus, e.channel, e.id, e.lun);
        }
    }
}

void sdToSg()
{
    for (const char *sd : {"/dev/sdc", "/dev/sr0", "/dev/sr2"}) {
        char sg[SG_NAME_SIZE] = "-";
        const int r = Dev_SdToSg(sg, sd);
        printf("%s -> %s (%d)\n", sd, sg, r);
    }
}

void sgToSd()
{
    for (int k = 0; k < kSgNodes; ++k) {
        char sg[SG_NAME_SIZE];
        char sd[SG_NAME_SIZE] = "-";
        Dev_MakeDevName(sg, k, 1);
        const int r = Dev_SgToSd(sd, sg);
        printf("%s -> %s (%d)\n", sg, sd, r);
    }
}

// One command block through Dev_ExecMMC; prints the outcome, the sense key
// and codes, and the first 20 bytes of the reply.
void mmc(int fd, const char *title, std::initializer_list<uint8_t> cdb, unsigned len)
{
    static dev::MmcRequest r;
    r.prepare("guest", title, cdb, len);
    const int result = r.issue(fd, 0);
    printf("  %-22s %d st %02x sense %x/%02x/%02x :", title, result, r.cmd.hdr.status,
           r.sense[2] & 0xF, r.sense[12], r.sense[13]);
    // sg hands back its reserved buffer after a failed command: no reply then.
    for (unsigned i = 0; result == 0 && i < len && i < 20; ++i) {
        printf(" %02x", r.reply[i]);
    }
    printf("\n");
}

void execMmc()
{
    for (int k = 0; k < kSgNodes; ++k) {
        char sg[SG_NAME_SIZE];
        Dev_MakeDevName(sg, k, 1);
        const int fd = open(sg, O_RDWR | O_NONBLOCK);
        printf("%s\n", sg);
        mmc(fd, "TEST UNIT READY", {0x00, 0, 0, 0, 0, 0}, 0);
        mmc(fd, "INQUIRY", {0x12, 0, 0, 0, 36, 0}, 36);
        mmc(fd, "GET CONFIGURATION", {0x46, 0x01, 0, 0, 0, 0, 0, 0, 16, 0}, 16);
        mmc(fd, "READ DISC INFORMATION", {0x51, 0, 0, 0, 0, 0, 0, 0, 34, 0}, 34);
        mmc(fd, "READ TOC", {0x43, 0, 0, 0, 0, 0, 0, 0, 20, 0}, 20);
        mmc(fd, "READ DVD STRUCTURE", {0xAD, 0, 0, 0, 0, 0, 0, 0, 0, 21, 0, 0}, 21);
        close(fd);
    }
}

void mountOne(const char *src, int fs)
{
    MountEntry e{};
    const int r = Dev_Mount(src, "/mnt", fs);
    const bool found = r == 0 && Dev_GetEntryViaMtab("/mnt", &e) == 0;
    printf("Dev_Mount(%s, %d) = %d: %s %s\n", src, fs, r, found ? e.device : "-",
           found ? e.type : "-");
    if (r == 0) {
        Dev_uMount("/mnt");
    }
}

void devMount()
{
    mkdir("/mnt", 0755);
    mountOne("/dev/sda", DEV_FS_AUTO);
    mountOne("/dev/sda1", 0);
    mountOne("/dev/sdb", DEV_FS_AUTO);
    mountOne("/dev/sdc", 2);
    mountOne("/dev/sr0", DEV_FS_ISO9660);
    mountOne("/dev/sr1", DEV_FS_AUTO);
    mountOne("/dev/sr2", DEV_FS_ISO9660);
    mountOne("/dev/sr3", DEV_FS_ISO9660);
}

void hdStatOne(const char *dev)
{
    DevRecord r{};
    snprintf(r.dev, sizeof r.dev, "%s", dev);
    const int state = Dev_GetHDStat(&r, DEV_FS_AUTO);
    const HDStat &s = r.info.hd;
    printf("%s: %d mpt '%s' type %x bsize %d free %u of %u bytes %llu/%llu device %llu\n", dev,
           state, r.mpt, s.fs_type, s.block_size, s.blocks_free, s.blocks_total,
           static_cast<unsigned long long>(s.free_bytes),
           static_cast<unsigned long long>(s.total_bytes),
           static_cast<unsigned long long>(s.device_bytes));
}

void hdStat()
{
    hdStatOne("/dev/sda");
    hdStatOne("/dev/sdc");
    Dev_Mount("/dev/sdb", "/mnt", 1);
    hdStatOne("/dev/sdb");
    Dev_uMount("/mnt");
}

void checkPartition()
{
    for (const char *dev : {"/dev/sda", "/dev/sdb", "/dev/sdc", "/dev/sr0", "/dev/sr2"}) {
        printf("%s: %d\n", dev, Dev_CheckPartition(dev));
    }
    const int fd = open("/dev/sda", O_RDONLY);
    printf("BLKRRPART /dev/sda: %d\n", ioctl(fd, BLKRRPART));
    close(fd);
    for (const char *part : {"sda1", "sda2", "sda3"}) {
        struct stat st {};
        char name[DEV_NODE_NAME_SIZE] = "-";
        if (stat((std::string("/dev/") + part).c_str(), &st) == 0) {
            Dev_ConvertMajorMinor(static_cast<int>(major(st.st_rdev)),
                                  static_cast<int>(minor(st.st_rdev)), name);
        }
        printf("%s: in /proc/partitions %d, node %s\n", part, Dev_IsInProcPartitions(part), name);
    }
}

// The overview of every record Dev_Get gave: the result and, for the optical
// drives, readiness, the disc's class and its capacities.
void discInfo()
{
    for (int i = 0; i < gCount; ++i) {
        DevRecord r = gDevs[i];
        const int result = Dev_GetDiscInfo(&r);
        const DiscInfo &d = r.info.disc;
        if (r.cdrom == 0) {
            printf("%s: %d\n", r.dev, result);
            continue;
        }
        printf("%s: %d ready %d types %d,%d,%d total %llu used %llu KB\n", r.dev, result, r.ready,
               d.type1, d.type2, d.type3, static_cast<unsigned long long>(d.total_capacity),
               static_cast<unsigned long long>(d.used_capacity));
    }
}

// Last, since it takes the discs out: the control request on the CD drive,
// the SCSI sequence on the USB one, then the sweep, which finds no USB
// drive on this kernel (every host reads as ATA).
void eject()
{
    for (const char *dev : {"/dev/sr1", "/dev/sr3"}) {
        const int fd = open(dev, O_RDONLY | O_NONBLOCK);
        const int r = dev[7] == '1' ? EjectCdrom(dev, fd) : EjectScsi(dev, fd);
        printf("\n%s: %d\n", dev, r);
        close(fd);
    }
    const int fd = open("/dev/sg3", O_RDWR | O_NONBLOCK);
    mmc(fd, "TEST UNIT READY", {0x00, 0, 0, 0, 0, 0}, 0);
    close(fd);
    printf("Dev_EjectUsbCdrom: %d\n", Dev_EjectUsbCdrom());
}

struct Check {
    const char *name;
    void (*run)();
};

const Check kChecks[] = {
    {"Dev_Get", devGet},           {"Dev_BuildSgMap", sgMap},
    {"Dev_SdToSg", sdToSg},        {"Dev_SgToSd", sgToSd},
    {"Dev_ExecMMC", execMmc},      {"Dev_Mount", devMount},
    {"Dev_GetHDStat", hdStat},     {"Dev_CheckPartition", checkPartition},
    {"Dev_GetDiscInfo", discInfo}, {"EjectCdrom", eject},
};

} // namespace

int main()
{
    setvbuf(stdout, nullptr, _IOLBF, 0);
    for (const Check &c : kChecks) {
        printf("== %s\n", c.name);
        c.run();
    }
    printf("== end\n");
    return 0;
}
