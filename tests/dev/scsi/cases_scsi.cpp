// Operations of the SCSI case files (tests/cases/scsi): fake nodes with
// their addresses and drives, the generic map and the conversions between
// block and generic nodes, device numbers, and the boot signature check.
#include <scsi/scsi.h>

#include "case_runner.h"
#include "fake_scsi.h"

namespace {
using cases::Args;
using cases::rc;

// A node at path with its address (host channel id lun) and what answers
// behind it: a hard disk, or a drive "empty" or "loaded"; then perhaps a
// step that fails with an errno: "open", "bus" or "idlun".
std::string addNode(Args &a)
{
    const std::string kind = a.str(5), failing = a.str(6);
    std::shared_ptr<fake::MmcDrive> drive;
    if (kind != "disk") {
        drive = std::make_shared<fake::MmcDrive>(
            fake::media::byName(kind == "loaded" ? "DVD-ROM" : "no medium"));
    }
    const auto node = fake::addScsiNode(a.str(0),
                                        {static_cast<int>(a.n(1)), static_cast<int>(a.n(2)),
                                         static_cast<int>(a.n(3)), static_cast<int>(a.n(4))},
                                        drive);
    const int error = static_cast<int>(a.n(7));
    if (failing == "open") {
        node->openErrno = error;
    } else if (!failing.empty()) {
        node->failures[failing == "bus" ? SCSI_IOCTL_GET_BUS_NUMBER : SCSI_IOCTL_GET_IDLUN] = error;
    }
    return std::string();
}

// The result, each entry with an open node or a ready drive (number, name,
// ready, address), and the names of the entries at the ends of the letters.
std::string buildMap(Args &)
{
    SgMapEntry map[SG_MAP_SIZE];
    memset(map, 0x55, sizeof map);
    std::string out = rc(Dev_BuildSgMap(map));
    for (int k = 0; k < SG_MAP_SIZE; ++k) {
        const SgMapEntry &e = map[k];
        if (e.ready != 0 || e.bus != -1 || e.channel != -1 || e.id != -1 || e.lun != -1) {
            out += "\n" + std::to_string(k) + " " + e.name + " " +
                   cases::nums({e.ready, e.bus, e.channel, e.id, e.lun});
        }
    }
    return out + "\nnames " + map[0].name + " " + map[25].name + " " + map[26].name + " " +
           map[31].name;
}

// A conversion into a buffer holding "kept", or into none.
cases::Op convert(int (*fn)(char *, const char *))
{
    return [fn](Args &a) {
        char out[SG_NAME_SIZE] = "kept";
        const int result = fn(a.str(1) == "nobuffer" ? nullptr : out, a.s(0));
        return rc(result) + " " + out;
    };
}

const cases::Register ops({
    {"hideScsiNodes",
     [](Args &) {
         fake::hideScsiNodes();
         return std::string();
     }},
    {"sgNode", addNode},
    {"BuildSgMap", buildMap},
    {"BuildSgMapNull", [](Args &) { return rc(Dev_BuildSgMap(nullptr)); }},
    {"MakeDevName",
     [](Args &a) {
         char name[SG_NAME_SIZE] = {};
         Dev_MakeDevName(name, static_cast<int>(a.n(0)), static_cast<int>(a.n(1)));
         return std::string(name);
     }},
    {"SdToSg", convert(Dev_SdToSg)},
    {"SgToSd", convert(Dev_SgToSd)},
    {"ConvertMajorMinor",
     [](Args &a) {
         char name[DEV_NODE_NAME_SIZE] = "-";
         const int result =
             Dev_ConvertMajorMinor(static_cast<int>(a.n(0)), static_cast<int>(a.n(1)), name);
         return rc(result) + " " + name;
     }},
    {"AppendDiskLetters",
     [](Args &a) {
         char name[DEV_NODE_NAME_SIZE] = "";
         Dev_AppendDiskLetters(static_cast<int>(a.n(0)), name, 0);
         return std::string(name);
     }},
    {"CheckPartition", [](Args &a) { return rc(Dev_CheckPartition(a.s(0))); }},
});

} // namespace
