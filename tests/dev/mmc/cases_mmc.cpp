// Operations of the MMC case files (tests/cases/mmc): a fake drive on
// /dev/sg0 with a loaded medium, the faults and replies it is given, one
// disc record the calls share, and the commands the drive received.
#include <algorithm>
#include <fcntl.h>
#include <unistd.h>

#include "case_runner.h"
#include "fake_scsi.h"
#include "mmc_request.h"

namespace {
using cases::Args;

std::shared_ptr<fake::MmcDrive> drive;
std::shared_ptr<fake::ScsiNode> node;
DiscInfo info;
int64_t sleptBefore = 0;

auto fieldsOf(DiscInfo &d)
{
    return std::tie(d.type1, d.type2, d.type3, d.sub_type, d.reseved_flag, d.appendable,
                    d.last_lead_in, d.next_lead_in, d.last_track, d.total_session, d.free_blocks,
                    d.track_size, d.total_capacity, d.used_capacity);
}

// The shared record after a call, every field in the order of its type.
std::string shown()
{
    std::string out;
    std::apply([&](auto &...f) { ((out += " " + std::to_string(f)), ...); }, fieldsOf(info));
    return "[" + out.substr(1) + "]";
}

uint8_t byte(const Args &a, size_t i)
{
    return static_cast<uint8_t>(a.n(i));
}

// An operation that only sets the drive up and prints nothing.
cases::Op setUp(void (*fn)(Args &))
{
    return [fn](Args &a) {
        fn(a);
        return std::string();
    };
}

// The drive's node opened for one call, as the library's callers do.
template <typename Fn> int onNode(Fn &&fn)
{
    const int fd = open("/dev/sg0", O_RDWR | O_NONBLOCK);
    const int result = fn(fd);
    close(fd);
    return result;
}

// A call's device name: "sr0" unless the case gives one.
const char *nameOf(const Args &a)
{
    return a.size() == 0 ? "sr0" : a.s(0);
}

cases::Op withRecord(int (*fn)(const char *, int, DiscInfo *))
{
    return [fn](Args &a) {
        DiscInfo *record = a.size() > 1 && a.s(1) == nullptr ? nullptr : &info;
        const int result = onNode([&](int fd) { return fn(nameOf(a), fd, record); });
        return std::to_string(result) + " " + shown();
    };
}

cases::Op withName(int (*fn)(const char *, int))
{
    return
        [fn](Args &a) { return std::to_string(onNode([&](int fd) { return fn(nameOf(a), fd); })); };
}

// Each command as the drive received it: its block, then "<" and the length
// of a reply read into a buffer, or "-" for none; any other header field
// than those the library always sets the same way is named.
std::string issued()
{
    std::string out;
    for (const fake::MmcDrive::Issue &i : drive->issued) {
        const sg_io_hdr_t &h = i.hdr;
        out += cases::hex(i.cdb);
        const bool reads = h.dxfer_direction == SG_DXFER_FROM_DEV && h.dxferp != nullptr;
        const bool none = h.dxfer_direction == SG_DXFER_NONE && h.dxferp == nullptr;
        out += reads ? "<" : none ? "-" : "?";
        out += std::to_string(h.dxfer_len);
        const bool usual = h.interface_id == 'S' && h.mx_sb_len == 64 && h.timeout == 20000 &&
                           h.usr_ptr == nullptr && h.sbp != nullptr &&
                           (h.iovec_count | h.flags | h.pack_id) == 0;
        out += usual ? "\n" : " unusual header\n";
    }
    drive->issued.clear();
    return out.empty() ? "none" : out.substr(0, out.size() - 1);
}

// A command of up to 12 bytes, named "(sr0) <title>", run as given; perhaps
// with a sense buffer of another length, or none (0).
std::string execMmc(Args &a)
{
    if (a.s(0) == nullptr) {
        return std::to_string(Dev_ExecMMC(nullptr, 0, 1));
    }
    static dev::MmcRequest r;
    r.prepare("sr0", a.s(1), {}, static_cast<uint32_t>(a.n(3)));
    const std::string block = a.str(2);
    std::copy_n(block.begin(), std::min(block.size(), sizeof r.block), r.block);
    r.cmd.hdr.cmd_len = static_cast<unsigned char>(std::min(block.size(), sizeof r.block));
    if (a.size() > 4) {
        r.cmd.hdr.mx_sb_len = static_cast<unsigned char>(a.n(4));
        r.cmd.hdr.sbp = a.n(4) != 0 ? r.cmd.hdr.sbp : nullptr;
    }
    return std::to_string(onNode([&](int fd) { return Dev_ExecMMC(&r.cmd, fd, a.n(0)); }));
}

std::string inquiry(Args &a)
{
    char model[DEV_INQUIRY_MODEL_SIZE];
    memset(model, 'Z', sizeof model);
    const bool wanted = a.size() < 2 || a.s(1) != nullptr;
    const int result =
        onNode([&](int fd) { return Dev_Inquiry(nameOf(a), fd, wanted ? model : nullptr); });
    a.alias(model, "model");
    return std::to_string(result) + " " + cases::q(std::string(model, sizeof model));
}

void failNext(Args &a)
{
    const bool sense = a.str(2) != "none";
    drive->failNext(byte(a, 0), static_cast<int>(a.n(1)),
                    sense ? std::optional(fake::Sense{byte(a, 2), byte(a, 3), byte(a, 4)})
                          : std::nullopt,
                    static_cast<int>(a.n(sense ? 5 : 3)));
}

const cases::Register ops({
    // The drive and its medium.
    {"loadMedium", setUp([](Args &a) {
         fake::hideScsiNodes();
         drive = std::make_shared<fake::MmcDrive>(fake::media::byName(a.str(0)));
         node = fake::addScsiNode("/dev/sg0", {0, 0, 0, 0}, drive);
         info = DiscInfo{};
     })},
    {"profile", setUp([](Args &a) { drive->medium.profile = static_cast<uint16_t>(a.n(0)); })},
    // The sub-type and the last lead-out in MSF.
    {"atip", setUp([](Args &a) {
         drive->medium.atip->subType = byte(a, 0);
         drive->medium.atip->leadOut = static_cast<uint32_t>(a.n(1) << 16 | a.n(2) << 8 | a.n(3));
     })},
    {"trackFree",
     setUp([](Args &a) { drive->medium.tracks.at(a.n(0)).free = static_cast<uint32_t>(a.n(1)); })},
    {"capacities", setUp([](Args &a) {
         drive->medium.capacities.clear();
         for (size_t i = 0; i + 2 < a.size(); i += 3) {
             drive->medium.capacities.push_back({static_cast<uint32_t>(a.n(i)),
                                                 static_cast<uint32_t>(a.n(i + 1)),
                                                 static_cast<uint32_t>(a.n(i + 2))});
         }
     })},
    {"identity", setUp([](Args &a) {
         drive->vendor = a.str(0);
         drive->product = a.str(1);
     })},
    {"bufferBytes", setUp([](Args &a) {
         drive->bufferBytes = static_cast<uint32_t>(std::strtoul(a.s(0), nullptr, 0));
     })},
    {"failNext", setUp(failNext)},
    // A canned reply: the bytes given, zeros up to the length given.
    {"answerWith", setUp([](Args &a) {
         const std::string bytes = a.str(1);
         std::vector<uint8_t> reply(bytes.begin(), bytes.end());
         reply.resize(std::max<size_t>(reply.size(), a.n(2)));
         drive->replies[byte(a, 0)] = reply;
     })},
    {"sgVersion", setUp([](Args &a) { node->sgVersion = static_cast<int>(a.n(0)); })},
    {"ioctlFails", setUp([](Args &a) {
         node->failures[a.str(0) == "SG_IO" ? SG_IO : SG_GET_VERSION_NUM] =
             static_cast<int>(a.n(1));
     })},
    {"record",
     [](Args &a) {
         size_t i = 0;
         const auto next = [&] { return std::strtoll(a.str(i++).c_str(), nullptr, 0); };
         std::apply(
             [&](auto &...f) { ((f = static_cast<std::decay_t<decltype(f)>>(next())), ...); },
             fieldsOf(info));
         return shown();
     }},
    {"issued", [](Args &) { return issued(); }},
    {"fakeClock", setUp([](Args &) {
         fake::clock::enable();
         sleptBefore = fake::clock::sleptNs();
     })},
    {"sleptSince",
     [](Args &) {
         const int64_t ns = fake::clock::sleptNs() - sleptBefore;
         sleptBefore += ns;
         return std::to_string(ns) + " ns";
     }},
    // The calls.
    {"ExecMMC", execMmc},
    {"TestUnitReady", withName(Dev_TestUnitReady)},
    {"ReadBufferCapacity", withName(Dev_ReadBufferCapacity)},
    {"ReadCapacity", withName(Dev_ReadCapacity)},
    {"ReadPreRecordedInfo", withName(Dev_ReadPreRecordedInfo)},
    {"Inquiry", inquiry},
    {"GetConfiguration", withRecord(Dev_GetConfiguration)},
    {"ReadDiscInfo", withRecord(Dev_ReadDiscInfo)},
    {"ReadTrackInfo", withRecord(Dev_ReadTrackInfo)},
    {"ReadFormatCapacity", withRecord(Dev_ReadFormatCapacity)},
    {"ReadCdATIP", withRecord(Dev_ReadCdATIP)},
    {"ReadCdToc", withRecord(Dev_ReadCdToc)},
    {"GetCdInfo", withRecord(Dev_GetCdInfo)},
    {"ShowDiscInfo",
     [](Args &a) {
         Dev_ShowDiscInfo(a.size() > 0 && a.s(0) == nullptr ? nullptr : &info);
         return std::string();
     }},
});

} // namespace
