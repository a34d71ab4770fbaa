// Operations of the storage case files (tests/cases/storage): identity and
// SMART values from /proc/ide texts, the ID file, the device list over fake
// SCSI nodes, the mount table and /proc/partitions queries, the refusals of
// the mount calls, and the temperature state of the watched disks.
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <linux/fs.h>
#include <mntent.h>
#include <rpc/xdr.h>
#include <scsi/scsi.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "case_runner.h"
#include "fake_scsi.h"

namespace {
using cases::Args;
using cases::q;
using cases::rc;

constexpr int64_t kStart = 1'000'000'000;

// Buffers hold "-" before a call; the flags say which ones are passed.
std::string identify(Args &a)
{
    char sn[DEV_SN_SIZE] = "-", fw[DEV_FW_REV_SIZE] = "-", md[DEV_ATA_MODEL_SIZE] = "-";
    const std::string pass = a.size() > 1 ? a.str(1) : "sfm";
    const auto buffer = [&](char flag, char *p) {
        a.alias(p, std::string(1, flag));
        return pass.find(flag) != std::string::npos ? p : nullptr;
    };
    a.alias(a.s(0), "path");
    const int result =
        Dev_GetDevIdentify(a.s(0), buffer('s', sn), buffer('f', fw), buffer('m', md));
    return rc(result) + " " + q(sn) + " " + q(fw) + " " + q(md);
}

std::string smartValue(Args &a)
{
    SmartValue smart{static_cast<uint8_t>(a.n(1)), 99};
    const int result = Dev_GetSmartValue(a.s(0), a.size() > 1 ? &smart : nullptr);
    return rc(result) + " " + rc(smart.value);
}

// A call filling a buffer of its exact size that holds "-" before.
// "-" in a buffer whose later bytes are not zero, so that a copy which leaves
// out its terminator shows.
void dashed(char *out, size_t size)
{
    memset(out, 'X', size - 1);
    out[size - 1] = '\0';
    memcpy(out, "-", 2);
}

cases::Op intoBuffer(int (*fn)(char *, const char *), size_t size, const char *name)
{
    return [=](Args &a) {
        std::vector<char> out(size);
        dashed(out.data(), size);
        a.alias(out.data(), name);
        const int result = fn(out.data(), a.s(0));
        return rc(result) + " " + q(out.data());
    };
}

// Length, then the bytes of the encoded path around its start and its end.
std::string xdrPath(Args &a)
{
    std::string path(a.n(0), 'p');
    for (size_t i = 0; i < path.size(); ++i) {
        path[i] = static_cast<char>('a' + i % 26);
    }
    std::string buf(2048, '\xEE');
    XDR xdrs;
    xdrmem_create(&xdrs, buf.data(), buf.size(), XDR_ENCODE);
    char *p = path.data();
    const int ok = Dev_XdrDirPath(&xdrs, &p);
    const unsigned pos = xdr_getpos(&xdrs);
    xdr_destroy(&xdrs);
    return rc(ok) + " " + std::to_string(pos) + " " + q(buf.substr(0, 12)) + " " +
           q(buf.substr(pos < 4 ? 0 : pos - 4, 6));
}

std::string entry(Args &a)
{
    MountEntry e{};
    a.alias(&e, "entry");
    const int result = Dev_GetEntryViaMtab(a.s(0), &e);
    return rc(result) + " " + q(e.device) + " " + q(e.dir) + " " + q(e.type) + " " + q(e.opts);
}

// Dev_Get's world: the recorded /proc/ide texts, nothing mounted, the /dev/sd
// nodes and the temporary mount points in the case's directory.
std::string enumeration(Args &a)
{
    fake::hideScsiNodes();
    fake::clock::enable(); // not-ready drives cost three tries of a second
    fake::redirect("/proc/ide", a.str(0));
    fake::redirect("/proc/mounts", a.tmp->write("mounts", "/dev/hda1 /nonexistent/hda1 ext3 rw\n"));
    fake::redirect("/proc/partitions", a.tmp->write("partitions", ""));
    std::filesystem::create_directories(a.tmp->file("var"));
    fake::redirect("/var", a.tmp->file("var"));
    for (char c = 'a'; c <= 'z'; ++c) {
        fake::redirect(std::string("/dev/sd") + c, a.tmp->file(std::string("sd") + c));
    }
    return "";
}

// Nodes by path, for the requests they were asked.
std::map<std::string, std::shared_ptr<fake::ScsiNode>> gNodes;

// A block node at an address "host,channel,id,lun" with a host text and a
// size in MiB; its generic node in the map unless "-"; a medium of "disk" is
// a SanDisk stick.
std::string scsiNode(Args &a)
{
    const std::map<std::string, std::string> media = {
        {"disk", "hard disk"}, {"none", "no medium"}, {"dvd", "DVD-ROM"}};
    auto drive = std::make_shared<fake::MmcDrive>(fake::media::byName(media.at(a.str(3))));
    if (a.str(3) == "disk") {
        drive->vendor = "SanDisk";
        drive->product = "Cruzer Blade";
    }
    fake::ScsiAddress at{};
    sscanf(a.s(2), "%d,%d,%d,%d", &at.host, &at.channel, &at.id, &at.lun);
    if (a.str(1) != "-") {
        fake::addScsiNode(a.str(1), at, drive);
    }
    auto node = gNodes[a.str(0)] = fake::addScsiNode(a.str(0), at, drive);
    node->hostText = a.str(4);
    node->bytes = static_cast<uint64_t>(a.n(5)) << 20;
    return "";
}

// A node's request of a name fails with an errno.
std::string failing(Args &a)
{
    const std::map<std::string, unsigned long> requests = {{"bus", SCSI_IOCTL_GET_BUS_NUMBER},
                                                           {"idlun", SCSI_IOCTL_GET_IDLUN},
                                                           {"size64", BLKGETSIZE64}};
    gNodes.at(a.str(0))->failures[requests.at(a.str(1))] = static_cast<int>(a.n(2));
    return "";
}

std::string devGet(Args &a)
{
    static DevRecord devs[DEV_MAX_DEVICES];
    memset(devs, 0, sizeof devs);
    for (int i = 0; i < DEV_MAX_DEVICES; ++i) {
        a.alias(devs[i].model, "pDev[" + std::to_string(i) + "].model");
    }
    const int ready = gFsArrayReady;
    gFsArrayReady = 1; // no file-system probing in the log
    const int count = Dev_Get(a.size() > 0 ? nullptr : devs);
    gFsArrayReady = ready;
    return rc(count) + " " + q(devs[0].mpt);
}

std::string blockNode(Args &a)
{
    struct stat st {};
    if (stat(a.s(0), &st) != 0 || !S_ISBLK(st.st_mode)) {
        return "no block node";
    }
    return "block " + rc(static_cast<int>(major(st.st_rdev))) + ":" +
           rc(static_cast<int>(minor(st.st_rdev)));
}

// One watch whose disks read their texts from the case's directory; the
// callbacks print what they are given, times in seconds from the start.
TempWatch gWatch;

template <char kind> int printEvent(int index, DiskTempState *pDisk, int64_t now)
{
    printf("%c%d status %d at %lld\n", kind, index, pDisk->status,
           static_cast<long long>(now - kStart));
    return 0;
}

std::string watch(Args &a)
{
    gWatch = TempWatch{};
    gWatch.temp_high = static_cast<uint8_t>(a.n(0));
    gWatch.temp_low = static_cast<uint8_t>(a.n(1));
    gWatch.hold_seconds = static_cast<uint16_t>(a.n(2));
    gWatch.on_overheat = a.str(3).find('H') != std::string::npos ? printEvent<'H'> : nullptr;
    gWatch.on_recover = a.str(3).find('C') != std::string::npos ? printEvent<'C'> : nullptr;
    for (int i = 0; i < DEV_WATCH_DISKS; ++i) {
        snprintf(gWatch.disks[i].name, sizeof gWatch.disks[i].name, "hd%c", 'a' + i);
        gWatch.disks[i].status = DEV_TEMP_NORMAL;
        gWatch.disks[i].since = -1;
    }
    fake::redirect("/proc/ide", a.tmp->path());
    return "";
}

// At a second, disk index reads a recorded text ("-": an empty one): its
// status, previous status and hold start after the step.
std::string step(Args &a)
{
    fake::clock::enable(kStart + a.n(0));
    DiskTempState &d = gWatch.disks[a.n(1)];
    const std::string reading = DVR_TEST_DATA_DIR "/storage/smart/" + a.str(2);
    a.tmp->write(std::string(d.name) + "/smart_values",
                 a.str(2) == "-" ? "" : fake::readFile(reading));
    SmartValue smart{DEV_SMART_TEMPERATURE, 0};
    const int result = Dev_SubTempWatch(&gWatch, &d, &smart, static_cast<int>(a.n(1)));
    return rc(result) + " prev " + rc(d.prev_status) + " since " +
           std::to_string(d.since < 0 ? d.since : d.since - kStart);
}

// On real disks: the statistics of a record whose size a software RAID keeps,
// as `stat -f -c '%t %S %b %f'` prints them, then the two byte counts.
std::string hdStat(Args &a)
{
    DevRecord r{};
    snprintf(r.dev, sizeof r.dev, "%s", a.s(0));
    r.info.hd.device_bytes = static_cast<uint64_t>(a.n(2));
    const int result = Dev_GetHDStat(&r, static_cast<int>(a.n(1)));
    const HDStat &hd = r.info.hd;
    char text[128];
    snprintf(text, sizeof text, "%x %d %u %u %llu %llu", hd.fs_type, hd.block_size, hd.blocks_total,
             hd.blocks_free, static_cast<unsigned long long>(hd.total_bytes),
             static_cast<unsigned long long>(hd.free_bytes));
    return rc(result) + " " + std::to_string(hd.device_bytes) + " " + q(text) + " " + q(r.mpt);
}

// The kernel's own view of a mount point, decoded by the C library: device,
// type and whether noatime is set, of the uppermost mount.
std::string seen(Args &a)
{
    std::string out = "not mounted";
    FILE *f = setmntent("/proc/self/mounts", "r");
    for (const mntent *m; (m = getmntent(f)) != nullptr;) {
        if (a.str(0) == m->mnt_dir) {
            out = std::string(m->mnt_fsname) + " " + m->mnt_type +
                  (hasmntopt(m, "noatime") != nullptr ? " noatime" : "");
        }
    }
    endmntent(f);
    return out;
}

int gHeld = -1; // a file kept open to make a mount busy

const cases::Register ops({
    {"Identify", identify},
    {"Smart", smartValue},
    {"IDViaDev", intoBuffer(Dev_GetIDViaDev, DEV_ID_SIZE, "id")},
    {"IDViaMount", intoBuffer(Dev_GetIDViaMount, DEV_ID_SIZE, "id")},
    {"InPartitions", [](Args &a) { return rc(Dev_IsInProcPartitions(a.s(0))); }},
    {"InitFsArray",
     [](Args &) {
         Dev_InitFsArray();
         for (FsEntry &row : gFsArray) {
             row.enabled = 1;
         }
         return std::string();
     }},
    {"Xdr", xdrPath},
    {"Mount", [](Args &a) { return rc(Dev_Mount(a.s(0), a.s(1), static_cast<int>(a.n(2)))); }},
    {"MountNfs", [](Args &a) { return rc(Dev_MountNfs(a.s(0), a.s(1))); }},
    {"uMount", [](Args &a) { return rc(Dev_uMount(a.s(0))); }},
    {"uMountForce", [](Args &a) { return rc(Dev_uMount_Force(a.s(0))); }},
    {"UmountRpc",
     [](Args &a) {
         const auto start = std::chrono::steady_clock::now();
         const int result = Dev_NfsUmountRpc(a.s(0), a.s(1));
         const bool slow = std::chrono::steady_clock::now() - start > std::chrono::seconds(2);
         return rc(result) + (slow ? " after more than 2 s" : "");
     }},
    {"MPT",
     [](Args &a) {
         char mpt[DEV_MPT_SIZE];
         dashed(mpt, sizeof mpt);
         a.alias(mpt, "mpt");
         const int n = static_cast<int>(a.n(1));
         const int result = a.size() > 1 ? Dev_nGetMPT(a.s(0), mpt, n) : Dev_GetMPT(a.s(0), mpt);
         return rc(result) + " " + q(mpt);
     }},
    {"DevViaMount", intoBuffer(Dev_GetDevViaMount, DEV_MPT_SIZE, "device")},
    {"Entry", entry},
    {"devWorld", enumeration},
    {"scsiNode", scsiNode},
    {"failingNode", failing},
    {"ideNode",
     [](Args &a) {
         fake::addScsiNode("/dev/hd" + a.str(0), {})->bytes = static_cast<uint64_t>(a.n(1)) << 20;
         return std::string();
     }},
    {"DevGet", devGet},
    {"blockNode", blockNode},
    {"nodeAsked",
     [](Args &a) { return rc(static_cast<int>(gNodes.at(a.str(0))->requests().size())); }},
    {"tempWatch", watch},
    {"tempStep", step},
    {"HDStat", hdStat},
    {"mountSeen", seen},
    {"Rmdir", [](Args &a) { return rc(COM_Rmdir(a.s(0))); }},
    {"holdOpen", [](Args &a) { return rc((gHeld = open(a.s(0), O_CREAT | O_RDWR, 0644)) < 0); }},
    {"closeHeld", [](Args &) { return rc(close(gHeld)); }},
    {"rmFile", [](Args &a) { return rc(unlink(a.s(0))); }},
});

} // namespace
