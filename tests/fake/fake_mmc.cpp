#include "fake_mmc.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "dev_endian.h"

namespace fake {

namespace {
namespace be = dev::be;

constexpr Sense kNoMedium = {0x02, 0x3A, 0x00};
constexpr Sense kInvalidField = {0x05, 0x24, 0x00};
constexpr Sense kInvalidOpcode = {0x05, 0x20, 0x00};
constexpr Sense kIncompatibleMedium = {0x05, 0x30, 0x02};
constexpr size_t kSenseLength = 18;
constexpr uint8_t kCheckCondition = 0x02;
constexpr uint8_t kDriverSense = 0x08;
constexpr uint8_t kDidError = 0x07;
constexpr uint32_t kBlockLength = 2048;
constexpr uint32_t kFirstDataSector = 0x030000;
constexpr uint32_t kMsfOffset = 150;
constexpr uint8_t kLeadOutTrack = 0xAA;
constexpr uint8_t kDataTrackControl = 0x14;

// Commands a drive answers without a medium.
bool needsMedium(uint8_t opcode)
{
    return opcode != 0x12 && opcode != 0x46 && opcode != 0x5C;
}

// Where the command block carries its allocation length.
uint32_t allocationOf(const uint8_t *cdb)
{
    switch (cdb[0]) {
    case 0x00: return 0;
    case 0x12: return be::get16(cdb + 3);
    case 0x25: return 8;
    case 0xAD: return be::get16(cdb + 8);
    default: return be::get16(cdb + 7);
    }
}

void putMsf(uint8_t *p, Msf t)
{
    p[0] = t.m;
    p[1] = t.s;
    p[2] = t.f;
}

// A logical block as the 4-byte address of a TOC entry, in MSF or LBA form.
void putAddress(uint8_t *p, uint32_t lba, bool msf)
{
    if (!msf) {
        be::put32(p, lba);
        return;
    }
    const uint32_t frames = lba + kMsfOffset;
    p[0] = 0;
    putMsf(p + 1, {static_cast<uint8_t>(frames / 4500), static_cast<uint8_t>(frames / 75 % 60),
                   static_cast<uint8_t>(frames % 75)});
}

std::vector<uint8_t> withLength(size_t size, uint32_t lengthValue, size_t lengthBytes = 2)
{
    std::vector<uint8_t> r(size);
    be::put(r.data(), lengthBytes, lengthValue);
    return r;
}

std::vector<Track> closedTracks(const Medium &m)
{
    std::vector<Track> out;
    std::copy_if(m.tracks.begin(), m.tracks.end(), std::back_inserter(out),
                 [](const Track &t) { return !t.open; });
    return out;
}

std::vector<uint8_t> inquiry(const MmcDrive &d)
{
    std::vector<uint8_t> r(96, ' ');
    std::fill_n(r.begin(), 8, 0);
    r[0] = 0x05; // CD/DVD device
    r[1] = 0x80; // removable
    r[3] = 0x02;
    r[4] = 96 - 5;
    std::copy_n(d.vendor.begin(), std::min<size_t>(d.vendor.size(), 8), r.begin() + 8);
    std::copy_n(d.product.begin(), std::min<size_t>(d.product.size(), 16), r.begin() + 16);
    std::copy_n(d.revision.begin(), std::min<size_t>(d.revision.size(), 4), r.begin() + 32);
    std::fill(r.begin() + 36, r.end(), 0);
    return r;
}

// Feature header with the current profile, then the profile list feature.
std::vector<uint8_t> configuration(const Medium &m)
{
    const bool listed = m.profile != 0;
    auto r = withLength(listed ? 16 : 12, listed ? 12 : 8, 4);
    be::put16(&r[6], m.profile);
    r[10] = 0x03; // persistent, current
    if (listed) {
        r[11] = 4;
        be::put16(&r[12], m.profile);
        r[14] = 0x01; // current
    }
    return r;
}

std::vector<uint8_t> discInformation(const Medium &m)
{
    auto r = withLength(34, 32);
    static constexpr uint8_t kSessionState[] = {0, 1, 3, 3};
    r[2] = static_cast<uint8_t>((m.erasable ? 0x10 : 0) | kSessionState[m.discStatus & 3] << 2 |
                                (m.discStatus & 3));
    r[3] = 1;
    const auto last = static_cast<uint16_t>(m.tracks.size());
    const uint16_t firstInLast = m.discStatus == 1 ? last : 1;
    r[4] = static_cast<uint8_t>(m.sessions);
    r[9] = static_cast<uint8_t>(m.sessions >> 8);
    r[5] = static_cast<uint8_t>(firstInLast);
    r[10] = static_cast<uint8_t>(firstInLast >> 8);
    r[6] = static_cast<uint8_t>(last);
    r[11] = static_cast<uint8_t>(last >> 8);
    if (m.discStatus == 2) {
        be::put32(&r[16], 0xFFFFFFFF);
        be::put32(&r[20], 0xFFFFFFFF);
    } else if (m.atip) {
        putMsf(&r[17], m.atip->leadIn);
        putMsf(&r[21], m.atip->leadOut);
    }
    return r;
}

std::optional<Sense> trackInformation(const Medium &m, const uint8_t *cdb, std::vector<uint8_t> &r)
{
    const uint32_t number = be::get32(cdb + 2);
    if ((cdb[1] & 3) != 1 || number == 0 || number > m.tracks.size()) {
        return kInvalidField;
    }
    const Track &t = m.tracks[number - 1];
    const bool last = number == m.tracks.size();
    const auto session = static_cast<uint16_t>(last || m.discStatus != 1 ? m.sessions : m.sessions - 1);
    r = withLength(48, 46);
    r[2] = static_cast<uint8_t>(number);
    r[32] = static_cast<uint8_t>(number >> 8);
    r[3] = static_cast<uint8_t>(session);
    r[33] = static_cast<uint8_t>(session >> 8);
    r[5] = 0x04; // data track
    r[6] = static_cast<uint8_t>((t.open && t.freeBlocks == t.size ? 0x40 : 0) | 0x01);
    r[7] = t.open ? 0x01 : 0x00;
    be::put32(&r[8], t.start);
    be::put32(&r[12], t.open ? t.start + t.size - t.freeBlocks : 0);
    be::put32(&r[16], t.freeBlocks);
    be::put32(&r[24], t.size);
    return std::nullopt;
}

uint32_t recordedEnd(const Medium &m)
{
    uint32_t end = 0;
    for (const Track &t : closedTracks(m)) {
        end = std::max(end, t.start + t.size);
    }
    return end;
}

std::vector<uint8_t> formatCapacities(const Medium &m)
{
    std::vector<Capacity> list = m.capacities;
    if (list.empty()) {
        list.push_back({recordedEnd(m), 2, kBlockLength});
    }
    auto r = withLength(4 + 8 * list.size(), static_cast<uint32_t>(8 * list.size()), 4);
    for (size_t i = 0; i < list.size(); ++i) {
        uint8_t *d = &r[4 + 8 * i];
        be::put32(d, list[i].blocks);
        d[4] = static_cast<uint8_t>(i == 0 ? list[i].type & 3 : list[i].type << 2);
        be::put(d + 5, 3, list[i].param);
    }
    return r;
}

std::optional<Sense> toc(const Medium &m, const uint8_t *cdb, std::vector<uint8_t> &r)
{
    const bool msf = (cdb[1] & 0x02) != 0;
    const uint8_t format = cdb[2] & 0x0F;
    if (format == 4) {
        if (!m.atip) {
            return kInvalidField;
        }
        const Atip &a = *m.atip;
        r = withLength(28, 26);
        r[4] = static_cast<uint8_t>(0x50 | (a.refSpeed & 7));
        r[6] = static_cast<uint8_t>(0x80 | (a.rewritable ? 0x40 : 0) | (a.subType & 7) << 3);
        putMsf(&r[8], a.leadIn);
        putMsf(&r[12], a.leadOut);
        return std::nullopt;
    }
    const std::vector<Track> tracks = closedTracks(m);
    const size_t first = std::max<size_t>(cdb[6], 1);
    if (format != 0 || tracks.empty() || first > tracks.size()) {
        return kInvalidField;
    }
    const size_t entries = tracks.size() - first + 2;
    r = withLength(4 + 8 * entries, static_cast<uint32_t>(2 + 8 * entries));
    r[2] = 1;
    r[3] = static_cast<uint8_t>(tracks.size());
    for (size_t i = 0; i < entries; ++i) {
        uint8_t *d = &r[4 + 8 * i];
        const bool leadOut = i + 1 == entries;
        d[1] = kDataTrackControl;
        d[2] = leadOut ? kLeadOutTrack : static_cast<uint8_t>(first + i);
        putAddress(d + 4, leadOut ? m.leadOut : tracks[first - 1 + i].start, msf);
    }
    return std::nullopt;
}

std::optional<Sense> dvdStructure(const Medium &m, const uint8_t *cdb, std::vector<uint8_t> &r)
{
    if (!m.physical) {
        return kIncompatibleMedium;
    }
    const Physical &p = *m.physical;
    const uint8_t format = cdb[7];
    if ((cdb[1] & 0x0F) != 0) {
        return kInvalidField;
    }
    if (format == 0x0E && (p.bookType >> 4 == 2 || p.bookType >> 4 == 3)) {
        r = withLength(4 + 64, 2 + 64); // pre-recorded information in the lead-in
        return std::nullopt;
    }
    if (format != 0x00 && format != 0x10) {
        return kInvalidField;
    }
    r = withLength(4 + 2048, 2 + 2048);
    r[4] = p.bookType;
    r[5] = static_cast<uint8_t>((p.small ? 0x10 : 0) | 0x0F);
    r[6] = static_cast<uint8_t>((p.twoLayers ? 0x30 : 0) | p.layerType);
    r[7] = 0x10;
    be::put32(&r[8], kFirstDataSector);
    be::put32(&r[12], kFirstDataSector + p.sectors - 1);
    be::put32(&r[16], p.twoLayers ? kFirstDataSector + p.sectors / 2 - 1 : 0);
    return std::nullopt;
}
} // namespace

void MmcDrive::load(const Medium &medium)
{
    std::lock_guard lock(mutex_);
    medium_ = medium;
}

void MmcDrive::failNext(uint8_t opcode, int count, std::optional<Sense> sense, int after)
{
    std::lock_guard lock(mutex_);
    faults_.push_back({opcode, after, count, sense});
}

void MmcDrive::answerWith(uint8_t opcode, std::vector<uint8_t> reply)
{
    std::lock_guard lock(mutex_);
    replies_[opcode] = std::move(reply);
}

std::optional<Sense> MmcDrive::answer(const uint8_t *cdb, std::vector<uint8_t> &r) const
{
    const Medium &m = medium_;
    if (!m.present && needsMedium(cdb[0])) {
        return kNoMedium;
    }
    if (m.present && m.profile == 0 && cdb[0] != 0x00 && cdb[0] != 0x12) {
        return kInvalidOpcode; // a hard disk: no MMC commands
    }
    switch (cdb[0]) {
    case 0x00: return std::nullopt;
    case 0x12: r = inquiry(*this); return std::nullopt;
    case 0x46: r = configuration(m); return std::nullopt;
    case 0x51: r = discInformation(m); return std::nullopt;
    case 0x52: return trackInformation(m, cdb, r);
    case 0x23: r = formatCapacities(m); return std::nullopt;
    case 0x43: return toc(m, cdb, r);
    case 0xAD: return dvdStructure(m, cdb, r);
    case 0x25:
        r.assign(8, 0);
        be::put32(&r[0], std::max<uint32_t>(recordedEnd(m), 1) - 1);
        be::put32(&r[4], kBlockLength);
        return std::nullopt;
    case 0x5C:
        r = withLength(12, 10);
        be::put32(&r[4], bufferBytes);
        be::put32(&r[8], bufferBytes);
        return std::nullopt;
    default: return kInvalidOpcode;
    }
}

int MmcDrive::execute(sg_io_hdr_t &hdr)
{
    if (hdr.interface_id != 'S') {
        errno = ENOSYS;
        return -1;
    }
    if (hdr.cmdp == nullptr || hdr.cmd_len == 0) {
        errno = EFAULT;
        return -1;
    }
    std::lock_guard lock(mutex_);
    issued_.push_back({std::vector<uint8_t>(hdr.cmdp, hdr.cmdp + hdr.cmd_len), hdr});
    hdr.status = hdr.masked_status = hdr.msg_status = hdr.sb_len_wr = 0;
    hdr.host_status = hdr.driver_status = 0;
    hdr.info = SG_INFO_OK;
    hdr.resid = static_cast<int>(hdr.dxfer_len);

    std::optional<Sense> sense;
    bool failed = false;
    std::vector<uint8_t> reply;
    auto fault = std::find_if(faults_.begin(), faults_.end(), [&](const Fault &f) {
        return f.opcode == hdr.cmdp[0] && f.count > 0;
    });
    if (fault != faults_.end() && fault->after > 0) {
        --fault->after;
        fault = faults_.end();
    }
    if (fault != faults_.end()) {
        --fault->count;
        failed = true;
        sense = fault->sense;
    } else if (auto canned = replies_.find(hdr.cmdp[0]); canned != replies_.end()) {
        reply = canned->second;
    } else {
        sense = answer(hdr.cmdp, reply);
        failed = sense.has_value();
    }

    if (!failed) {
        const size_t n = std::min<size_t>({reply.size(), allocationOf(hdr.cmdp), hdr.dxfer_len});
        if (n > 0 && hdr.dxferp != nullptr) {
            memcpy(hdr.dxferp, reply.data(), n);
        }
        hdr.resid = static_cast<int>(hdr.dxfer_len - n);
        return 0;
    }
    hdr.info = SG_INFO_CHECK;
    if (!sense) {
        hdr.host_status = kDidError;
        return 0;
    }
    uint8_t bytes[kSenseLength] = {0x70};
    bytes[2] = sense->keyByte;
    bytes[7] = kSenseLength - 8;
    bytes[12] = sense->asc;
    bytes[13] = sense->ascq;
    hdr.sb_len_wr = static_cast<unsigned char>(std::min<size_t>(kSenseLength, hdr.mx_sb_len));
    if (hdr.sbp != nullptr) {
        memcpy(hdr.sbp, bytes, hdr.sb_len_wr);
    }
    hdr.status = kCheckCondition;
    hdr.masked_status = kCheckCondition >> 1;
    hdr.driver_status = kDriverSense;
    return 0;
}

std::vector<MmcDrive::Issue> MmcDrive::issued() const
{
    std::lock_guard lock(mutex_);
    return issued_;
}

std::vector<uint8_t> MmcDrive::opcodes() const
{
    std::lock_guard lock(mutex_);
    std::vector<uint8_t> out;
    for (const Issue &i : issued_) {
        out.push_back(i.cdb[0]);
    }
    return out;
}

void MmcDrive::clearIssued()
{
    std::lock_guard lock(mutex_);
    issued_.clear();
}

// Media as drives report them. Capacities in 2 KB blocks: a 12 cm DVD+R or
// DVD+RW holds 2,295,104, a DVD-R 2,298,496 and a DVD-RW formats to 2,297,888.
namespace media {
namespace {
constexpr Atip kCdR80 = {{97, 26, 66}, {79, 59, 74}, 2, false, 0};
constexpr Atip kCdRw74 = {{97, 20, 10}, {74, 33, 0}, 1, true, 1};
constexpr Capacity kDvdRwFormats[] = {
    {2297888, 2, 2048}, {2297888, 0x00, 2048}, {2297888, 0x10, 16}, {2297888, 0x15, 16}};
} // namespace

const Medium kDisk = {"hard disk", 0x0000, true, 0, false, 0, {}, 0, {}, {}, {}};
const Medium kNone = {"no medium", 0x0000, false, 0, false, 0, {}, 0, {}, {}, {}};
const Medium kCdRom = {"CD-ROM", 0x0008, true, 2, false, 1, {{0, 269850, 0, false}}, 269850, {}, {}, {}};
const Medium kCdRBlank = {"CD-R blank", 0x0009, true, 0, false, 1,
                          {{0, 359849, 359849, true}}, 0, kCdR80, {}, {}};
// Lead-out of the first session at 10:00:00; the second session is open.
const Medium kCdROneTrack = {"CD-R one track", 0x0009, true, 1, false, 2,
                             {{0, 44850, 0, false}, {56250, 303599, 303599, true}}, 44850, kCdR80, {}, {}};
const Medium kCdRTwoTracks = {"CD-R two tracks", 0x0009, true, 1, false, 2,
                              {{0, 22350, 0, false}, {22500, 22350, 0, false},
                               {56250, 303599, 303599, true}},
                              44850, kCdR80, {}, {}};
const Medium kCdRFinalized = {"CD-R finalized", 0x0009, true, 2, false, 1,
                              {{0, 300000, 0, false}}, 300000, kCdR80, {}, {}};
const Medium kCdRw = {"CD-RW blank", 0x000A, true, 0, true, 1,
                      {{0, 334950, 334950, true}}, 0, kCdRw74, {}, {}};
const Medium kDvdRom = {"DVD-ROM", 0x0010, true, 2, false, 1, {{0, 2100000, 0, false}}, 2100000, {},
                        {}, Physical{0x01, 1, false, false, 2100000}};
const Medium kDvdR = {"DVD-R blank", 0x0011, true, 0, false, 1, {{0, 2298496, 2298496, true}}, 0, {},
                      {{2298496, 1, 2048}}, Physical{0x25, 2, false, false, 2298496}};
const Medium kDvdR80mm = {"DVD-R 8 cm incomplete", 0x0011, true, 1, false, 2,
                          {{0, 100000, 0, false}, {111904, 600987, 600987, true}}, 100000, {},
                          {{712891, 1, 2048}}, Physical{0x25, 2, true, false, 712891}};
const Medium kDvdRDualLayer = {"DVD-R dual layer", 0x0015, true, 0, false, 1,
                               {{0, 4171712, 4171712, true}}, 0, {}, {{4171712, 1, 2048}},
                               Physical{0x21, 2, false, true, 4171712}};
const Medium kDvdRwSequential = {"DVD-RW sequential incomplete", 0x0014, true, 1, true, 2,
                                 {{0, 500000, 0, false}, {530000, 1767888, 1767888, true}}, 500000, {},
                                 {std::begin(kDvdRwFormats), std::end(kDvdRwFormats)},
                                 Physical{0x32, 4, false, false, 2297888}};
const Medium kDvdRwRestricted = {"DVD-RW restricted overwrite", 0x0013, true, 2, true, 1,
                                 {{0, 2297888, 0, false}}, 2297888, {},
                                 {std::begin(kDvdRwFormats), std::end(kDvdRwFormats)},
                                 Physical{0x32, 4, false, false, 2297888}};
const Medium kDvdPlusR = {"DVD+R incomplete", 0x001B, true, 1, false, 2,
                          {{0, 300000, 0, false}, {318000, 1977104, 1977104, true}}, 300000, {},
                          {{2295104, 1, 2048}}, Physical{0xA1, 2, false, false, 2295104}};
const Medium kDvdPlusRwBlank = {"DVD+RW blank", 0x001A, true, 0, true, 1,
                                {{0, 2295104, 2295104, true}}, 0, {},
                                {{2295104, 1, 2048}, {2295104, 0x26, 0}},
                                Physical{0x92, 4, false, false, 2295104}};
const Medium kDvdPlusRwFormatted = {"DVD+RW formatted", 0x001A, true, 2, true, 1,
                                    {{0, 2295104, 0, false}}, 2295104, {},
                                    {{2295104, 2, 2048}, {2295104, 0x26, 0}},
                                    Physical{0x92, 4, false, false, 2295104}};
const Medium kDvdRam = {"DVD-RAM", 0x0012, true, 3, true, 1, {{0, 2236704, 0, false}}, 2236704, {},
                        {{2236704, 2, 2048}, {2236704, 0x00, 2048}, {2295104, 0x01, 0}},
                        Physical{0x16, 4, false, false, 2236704}};
const Medium kDdcdRom = {"DDCD-ROM", 0x0020, true, 2, false, 1, {{0, 600000, 0, false}}, 600000, {}, {},
                         {}};
const Medium kBdRom = {"BD-ROM", 0x0040, true, 2, false, 1, {{0, 11826176, 0, false}}, 11826176, {},
                       {{11826176, 2, 2048}}, {}};
const Medium kBdR = {"BD-R blank", 0x0041, true, 0, false, 1, {{0, 12219392, 12219392, true}}, 0, {},
                     {{12219392, 1, 2048}, {11826176, 0x00, 0x3000}, {11826176, 0x32, 0x3000}}, {}};
const Medium kHdDvdRom = {"HD DVD-ROM", 0x0050, true, 2, false, 1, {{0, 7461600, 0, false}}, 7461600, {},
                          {}, {}};
} // namespace media

} // namespace fake
