// Operations of the disc and eject case files (tests/cases/disc): the overview
// and the trial mounts on a drive record, each medium read each way, the
// ejects of one drive and the sweep over SCSI hosts.
#include <fcntl.h>
#include <linux/cdrom.h>
#include <linux/fs.h>
#include <sstream>
#include <tuple>
#include <unistd.h>

#include "DEV.h"
#include "case_runner.h"
#include "fake_scsi.h"

namespace {
using cases::Args;
using cases::hex;

std::map<std::string, std::shared_ptr<fake::ScsiNode>> gDiscNodes;

// A record of the drive (device, cdrom flag) over /dev/sg0, its used space 77.
cases::Op onRecord(int (*fn)(DevRecord *))
{
    return [fn](Args &a) {
        DevRecord r{};
        snprintf(r.dev, sizeof r.dev, "%s", a.str(0).c_str());
        snprintf(r.sg, sizeof r.sg, "/dev/sg0");
        r.cdrom = a.size() < 2 || a.n(1) != 0;
        r.info.disc.used_capacity = 77;
        const int result = fn(a.s(0) == nullptr ? nullptr : &r);
        return std::to_string(result) + " used " + std::to_string(r.info.disc.used_capacity);
    };
}

// A medium on /dev/sg0 read one way ("disc": the overview of /dev/scd0; "dvd",
// "bd", "struct", "toc": the reading of a record holding type1 type2 type3 appendable
// total): result, ready, every field of the record, each command block sent.
std::string discRow(Args &a)
{
    fake::OpenDrive open(fake::media::byName(a.str(0)));
    const std::string road = a.str(1);
    DevRecord r{};
    snprintf(r.dev, sizeof r.dev, "/dev/scd0");
    snprintf(r.sg, sizeof r.sg, "/dev/sg0");
    r.cdrom = 1;
    memset(&r.info, 0xAA, sizeof r.info);
    DiscInfo &d = r.info.disc;
    d = fake::discInfo(a.n(2), a.n(3), a.n(4), a.n(5), 0, a.n(6));
    auto read = road == "dvd"      ? Dev_GetDvdInfo
                : road == "bd"     ? Dev_GetBDInfo
                : road == "struct" ? Dev_ReadDvdStruct
                                   : Dev_ReadDvdRToc;
    const int got = road == "disc" ? Dev_GetDiscInfo(&r) : read(r.dev, open.fd, &d);
    std::string out = cases::nums({got, r.ready}) + " |";
    std::apply([&](auto &...f) { ((out += " " + std::to_string(f)), ...); },
               std::tie(d.type1, d.type2, d.type3, d.sub_type, d.reseved_flag, d.appendable,
                        d.last_lead_in, d.next_lead_in, d.last_track, d.total_session,
                        d.free_blocks, d.track_size, d.total_capacity, d.used_capacity));
    for (const fake::MmcDrive::Issue &i : open.drive->issued) {
        out += "\n" + hex(i.cdb);
    }
    return out;
}

// Failing at the given SG_IO request with the given driver version; then each
// command block and the header fields an eject must set, and the requests.
std::string ejectScsi(Args &a)
{
    auto drive = std::make_shared<fake::MmcDrive>(fake::media::byName("CD-ROM"));
    drive->failNext(0x1B, 2, fake::Sense{0x02, 0x3A, 0x00}); // no medium: not looked at
    drive->failCall = static_cast<int>(a.n(0));
    const auto node = fake::addScsiNode("/dev/sr0", {}, drive);
    node->sgVersion = static_cast<int>(a.n(1));
    const int fd = open("/dev/sr0", O_RDONLY | O_NONBLOCK);
    std::string out = std::to_string(EjectScsi("/dev/sr0", fd));
    close(fd);
    for (const fake::MmcDrive::Issue &i : drive->issued) {
        const sg_io_hdr_t &h = i.hdr;
        out += "\n" + hex(i.cdb) +
               cases::nums({h.interface_id, h.dxfer_direction, h.cmd_len, h.mx_sb_len, h.dxfer_len,
                            h.timeout, h.flags, h.dxferp != nullptr, h.sbp != nullptr});
    }
    out += "\nrequests:";
    for (const auto &r : node->requests()) {
        out += r.code == SG_IO ? " SG_IO" : r.code == BLKRRPART ? " BLKRRPART" : " VERSION";
    }
    return out;
}

// Drive n: /dev/scd<n> and /dev/sg<n> on SCSI host n holding the medium, "usb"
// or another host.
std::string ejectDrive(Args &a)
{
    const std::string n = a.str(0);
    const fake::ScsiAddress at{static_cast<int>(a.n(0)), 0, 0, 0};
    for (const std::string &name : {"sg" + n, "scd" + n}) {
        const auto drive = std::make_shared<fake::MmcDrive>(fake::media::byName(a.str(1)));
        gDiscNodes[name] = fake::addScsiNode("/dev/" + name, at, drive);
        gDiscNodes[name]->hostText =
            a.str(2) == "usb" ? "SCSI emulation for USB Mass Storage devices" : "ata_piix";
    }
    return std::string();
}

// A node's fault: "open", CDROMEJECT or SG_GET_VERSION_NUM with an errno, or
// GET CONFIGURATION refused nine times as an invalid command.
std::string nodeFault(Args &a)
{
    fake::ScsiNode &node = *gDiscNodes.at(a.str(0));
    const int error = static_cast<int>(a.n(2));
    if (a.str(1) == "open") {
        node.openErrno = error;
    } else if (a.str(1) == "GET_CONFIGURATION") {
        node.drive->failNext(0x46, 9, fake::Sense{0x05, 0x20, 0x00});
    } else {
        node.failures[a.str(1) == "CDROMEJECT" ? CDROMEJECT : SG_GET_VERSION_NUM] = error;
    }
    return std::string();
}

const cases::Register ops({
    {"GetDiscInfo", onRecord(Dev_GetDiscInfo)},
    {"GetDvdPlusRwInfo", onRecord(Dev_GetDvdPlusRwInfo)},
    {"GetDvdMinusRwInfo", onRecord(Dev_GetDvdMinusRwInfo)},
    {"GetBDReInfo", onRecord(Dev_GetBDReInfo)},
    {"discRow", discRow},
    // The DVD and BD readers without a record to fill.
    {"NullInfo",
     [](Args &) {
         return cases::nums(
             {Dev_ReadDvdStruct("sr0", -1, nullptr), Dev_ReadDvdRToc("sr0", -1, nullptr),
              Dev_GetDvdInfo("sr0", -1, nullptr), Dev_GetBDInfo("sr0", -1, nullptr)});
     }},
    {"EjectScsi", ejectScsi},
    {"ejectDrive", ejectDrive},
    {"nodeFault", nodeFault},
    // The sweep's result and its eject lines (the probing's log holds addresses).
    {"EjectUsbCdrom",
     [](Args &) {
         int result = 0;
         std::istringstream in(fake::logOf([&] { result = Dev_EjectUsbCdrom(); }));
         std::string out = std::to_string(result);
         for (std::string line; std::getline(in, line);) {
             out += line.starts_with("eject.cpp") ? "\n" + line : "";
         }
         return out;
     }},
    // The name the disc's file system mounts as: iso9660, or ext2 standing in.
    {"isoFsName",
     [](Args &a) {
         gFsArray[DEV_FS_ISO9660].name = a.str(0) == "ext2" ? "ext2" : "iso9660";
         return std::string();
     }},
    {"RescanScsiBus", [](Args &) { return std::to_string(Dev_RescanScsiBus()); }},
});

} // namespace
