#include "fake_mmc.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <sstream>

#include "dev_endian.h"
#include "test_support.h"

namespace fake {

namespace {
namespace be = dev::be;
using Bytes = std::vector<uint8_t>;

constexpr Sense kNoMedium = {0x02, 0x3A, 0x00};
constexpr Sense kInvalidField = {0x05, 0x24, 0x00};
constexpr Sense kInvalidOpcode = {0x05, 0x20, 0x00};
constexpr Sense kIncompatibleMedium = {0x05, 0x30, 0x02};
constexpr uint8_t kSenseLength = 18;
constexpr uint32_t kBlockLength = 2048;
constexpr uint32_t kFirstDataSector = 0x030000;

// A command the drive refuses ends in this sense data.
void require(bool ok, Sense refusal)
{
    if (!ok) {
        throw refusal;
    }
}

// Where the command block carries its allocation length; READ CAPACITY has
// none and always gets 8 bytes.
uint32_t allocationOf(const uint8_t *cdb)
{
    const uint8_t op = cdb[0];
    return op == 0x00 ? 0 : op == 0x25 ? 8 : be::get16(cdb + (op == 0x12 ? 3 : op == 0xAD ? 8 : 7));
}

struct Field {
    size_t at, width;
    uint32_t value;
};

// A reply of size bytes with these big-endian fields, the rest zero.
Bytes reply(size_t size, std::initializer_list<Field> fields)
{
    Bytes r(size);
    for (const Field &f : fields) {
        be::put(&r[f.at], f.width, f.value);
    }
    return r;
}

std::vector<Track> closedTracks(const Medium &m)
{
    std::vector<Track> out;
    std::copy_if(m.tracks.begin(), m.tracks.end(), std::back_inserter(out),
                 [](const Track &t) { return t.free == 0; });
    return out;
}

// The end of the recorded area: the lead-out of the last closed session.
uint32_t recordedEnd(const Medium &m)
{
    const std::vector<Track> closed = closedTracks(m);
    return closed.empty() ? 0 : closed.back().start + closed.back().size;
}

// A CD/DVD device, removable, its names padded with blanks.
Bytes inquiry(const MmcDrive &d)
{
    Bytes r = reply(96, {{0, 4, 0x05800002}, {4, 1, 96 - 5}});
    const std::string names = (d.vendor + std::string(8, ' ')).substr(0, 8) + d.product;
    const std::string text = (names + std::string(16, ' ')).substr(0, 24) + "1.00";
    std::copy(text.begin(), text.end(), r.begin() + 8);
    return r;
}

// Feature header with the current profile, then the profile list feature
// (persistent, current) with the current profile.
Bytes configuration(const Medium &m)
{
    if (m.profile == 0) {
        return reply(12, {{0, 4, 8}, {10, 1, 0x03}});
    }
    return reply(16, {{0, 4, 12},
                      {6, 2, m.profile},
                      {10, 1, 0x03},
                      {11, 1, 4},
                      {12, 2, m.profile},
                      {14, 1, 0x01}});
}

// The lead-in times are those of the ATIP, or none on a complete disc.
Bytes discInformation(const Medium &m)
{
    static constexpr uint8_t kSessionState[] = {0, 1, 3, 3};
    const bool erasable = (m.physical && m.physical->layerType == 4) ||
                          (m.atip && m.atip->rewritable) || m.profile == 0x0043; // BD-RE
    const uint32_t state =
        (erasable ? 0x10u : 0) | kSessionState[m.status & 3] << 2 | (m.status & 3);
    const uint32_t last = static_cast<uint32_t>(m.tracks.size());
    const uint32_t sessions = m.status == 1 ? 2 : 1, first = m.status == 1 ? last : 1;
    const uint32_t leadIn = m.status == 2 ? 0xFFFFFFFF : m.atip ? m.atip->leadIn : 0;
    const uint32_t leadOut = m.status == 2 ? 0xFFFFFFFF : m.atip ? m.atip->leadOut : 0;
    return reply(34, {{0, 2, 32},
                      {2, 1, state},
                      {3, 1, 1},
                      {4, 1, sessions},
                      {5, 1, first},
                      {6, 1, last},
                      {16, 4, leadIn},
                      {20, 4, leadOut}});
}

// A data track by number; the next writable address of an open one.
Bytes trackInformation(const Medium &m, const uint8_t *cdb)
{
    const uint32_t n = be::get32(cdb + 2);
    require((cdb[1] & 3) == 1 && n != 0 && n <= m.tracks.size(), kInvalidField);
    const Track &t = m.tracks[n - 1];
    const bool open = t.free != 0;
    const uint32_t session = m.status == 1 && n == m.tracks.size() ? 2 : 1;
    return reply(48, {{0, 2, 46},
                      {2, 1, n},
                      {3, 1, session},
                      {5, 1, 0x04},
                      {6, 1, (open && t.free == t.size ? 0x40u : 0) | 0x01},
                      {7, 1, open},
                      {8, 4, t.start},
                      {12, 4, open ? t.start + t.size - t.free : 0},
                      {16, 4, t.free},
                      {24, 4, t.size}});
}

Bytes formatCapacities(const Medium &m)
{
    std::vector<Capacity> list = m.capacities;
    if (list.empty()) {
        list.push_back({recordedEnd(m), 2, kBlockLength});
    }
    Bytes r = reply(4, {{0, 4, static_cast<uint32_t>(8 * list.size())}});
    for (const Capacity &c : list) {
        const Bytes d = reply(8, {{0, 4, c.blocks},
                                  {4, 1, r.size() == 4 ? c.type & 3u : c.type << 2u},
                                  {5, 3, c.param}});
        r.insert(r.end(), d.begin(), d.end());
    }
    return r;
}

// The ATIP, or the formatted table of contents of the closed tracks from the
// one asked for on, and the lead-out (track AAh), with times in MSF or LBA.
Bytes toc(const Medium &m, const uint8_t *cdb)
{
    const uint8_t format = cdb[2] & 0x0F;
    if (format == 4 && m.atip) {
        const Atip &a = *m.atip;
        return reply(28, {{0, 2, 26},
                          {4, 1, 0x50u | (a.refSpeed & 7)},
                          // A3 valid set: a flag the disc type must not be read from.
                          {6, 1, 0x81u | (a.rewritable ? 0x40 : 0) | (a.subType & 7) << 3},
                          {8, 3, a.leadIn},
                          {12, 3, a.leadOut}});
    }
    const std::vector<Track> tracks = closedTracks(m);
    const auto count = static_cast<uint32_t>(tracks.size()), first = std::max<uint32_t>(cdb[6], 1);
    require(format == 0 && count != 0 && first <= count, kInvalidField);
    Bytes r = reply(4, {{0, 2, 2 + 8 * (count - first + 2)}, {2, 1, 1}, {3, 1, count}});
    for (uint32_t n = first; n <= count + 1; ++n) {
        const bool leadOut = n == count + 1;
        const uint32_t lba = leadOut ? recordedEnd(m) : tracks[n - 1].start,
                       f = lba + 150; // 00:02:00 is block 0
        const uint32_t address =
            (cdb[1] & 0x02) != 0 ? (f / 4500 & 0xFF) << 16 | f / 75 % 60 << 8 | f % 75 : lba;
        const Bytes d =
            reply(8, {{1, 1, 0x14}, {2, 1, leadOut ? 0xAA : n}, {4, 4, address}}); // a data track
        r.insert(r.end(), d.begin(), d.end());
    }
    return r;
}

// Physical format information, or the pre-recorded information in the
// lead-in of a DVD-R or DVD-RW.
Bytes dvdStructure(const Medium &m, const uint8_t *cdb)
{
    require(m.physical.has_value(), kIncompatibleMedium);
    require((cdb[1] & 0x0F) == 0, kInvalidField);
    const Physical &p = *m.physical;
    const uint8_t format = cdb[7];
    if (format == 0x0E && (p.bookType >> 4 == 2 || p.bookType >> 4 == 3)) {
        return reply(4 + 64, {{0, 2, 2 + 64}});
    }
    require(format == 0x00 || format == 0x10, kInvalidField);
    const uint32_t end = kFirstDataSector + p.sectors - 1;
    const uint32_t layer0End = p.twoLayers ? kFirstDataSector + p.sectors / 2 - 1 : 0;
    return reply(4 + 2048, {{0, 2, 2 + 2048},
                            {4, 1, p.bookType},
                            {5, 1, (p.small ? 0x10u : 0) | 0x0F},
                            {6, 1, (p.twoLayers ? 0x30u : 0) | p.layerType},
                            {7, 1, 0x10},
                            {8, 4, kFirstDataSector},
                            {12, 4, end},
                            {16, 4, layer0End}});
}

// The replies by opcode.
using Reply = Bytes (*)(const MmcDrive &, const uint8_t *);
const std::map<uint8_t, Reply> kReplies = {
    {0x00, [](const MmcDrive &, const uint8_t *) { return Bytes(); }},
    {0x12, [](const MmcDrive &d, const uint8_t *) { return inquiry(d); }},
    {0x46, [](const MmcDrive &d, const uint8_t *) { return configuration(d.medium); }},
    {0x51, [](const MmcDrive &d, const uint8_t *) { return discInformation(d.medium); }},
    {0x52, [](const MmcDrive &d, const uint8_t *c) { return trackInformation(d.medium, c); }},
    {0x23, [](const MmcDrive &d, const uint8_t *) { return formatCapacities(d.medium); }},
    {0x43, [](const MmcDrive &d, const uint8_t *c) { return toc(d.medium, c); }},
    {0xAD, [](const MmcDrive &d, const uint8_t *c) { return dvdStructure(d.medium, c); }},
    // The last block and the block length; the buffer and its blank length.
    {0x25,
     [](const MmcDrive &d, const uint8_t *) {
         const uint32_t last = std::max<uint32_t>(recordedEnd(d.medium), 1) - 1;
         return reply(8, {{0, 4, last}, {4, 4, kBlockLength}});
     }},
    {0x5C,
     [](const MmcDrive &d, const uint8_t *) {
         return reply(12, {{0, 2, 10}, {4, 4, d.bufferBytes}, {8, 4, d.bufferBytes}});
     }},
};

// The reply of the loaded medium; throws the sense data of a refusal.
Bytes answer(const MmcDrive &d, const uint8_t *cdb)
{
    const Medium &m = d.medium;
    // INQUIRY, GET CONFIGURATION and READ BUFFER CAPACITY need no medium.
    require(m.present || cdb[0] == 0x12 || cdb[0] == 0x46 || cdb[0] == 0x5C, kNoMedium);
    // A hard disk takes no MMC commands.
    require(!m.present || m.profile != 0 || cdb[0] == 0x00 || cdb[0] == 0x12, kInvalidOpcode);
    const auto found = kReplies.find(cdb[0]);
    require(found != kReplies.end(), kInvalidOpcode);
    return found->second(d, cdb);
}
} // namespace

int MmcDrive::execute(sg_io_hdr_t &hdr)
{
    const bool broken = --failCall == 0;
    if (broken || hdr.interface_id != 'S' || hdr.cmdp == nullptr || hdr.cmd_len == 0) {
        errno = broken ? EIO : hdr.interface_id != 'S' ? ENOSYS : EFAULT;
        return -1;
    }
    issued.push_back({Bytes(hdr.cmdp, hdr.cmdp + hdr.cmd_len), hdr});
    auto fault = std::find_if(faults_.begin(), faults_.end(), [&](const Fault &f) {
        return f.opcode == hdr.cmdp[0] && f.count > 0;
    });
    const bool faulty = fault != faults_.end() && fault->after-- <= 0 && fault->count-- > 0;
    const auto given = replies.find(hdr.cmdp[0]);
    std::optional<Sense> sense = faulty ? fault->sense : std::nullopt;
    Bytes data;
    try {
        data = faulty ? Bytes() : given != replies.end() ? given->second : answer(*this, hdr.cmdp);
    } catch (const Sense &refused) {
        sense = refused;
    }
    const bool failed = faulty || sense;
    const size_t n =
        failed ? 0 : std::min<size_t>({data.size(), allocationOf(hdr.cmdp), hdr.dxfer_len});
    std::copy_n(data.begin(), hdr.dxferp != nullptr ? n : 0, static_cast<uint8_t *>(hdr.dxferp));
    hdr.resid = static_cast<int>(hdr.dxfer_len - n);
    hdr.info = failed ? SG_INFO_CHECK : SG_INFO_OK;
    hdr.host_status = failed && !sense ? 0x07 : 0; // DID_ERROR
    hdr.status = sense ? 0x02 : 0;                 // CHECK CONDITION
    hdr.masked_status = sense ? 0x01 : 0;          // the status shifted right by one
    hdr.driver_status = sense ? 0x08 : 0;          // DRIVER_SENSE
    hdr.msg_status = 0;
    hdr.sb_len_wr = sense ? std::min(kSenseLength, hdr.mx_sb_len) : 0;
    const Sense k = sense.value_or(Sense{});
    const Bytes bytes = reply(kSenseLength, {{0, 1, 0x70},
                                             {2, 1, k.keyByte},
                                             {7, 1, kSenseLength - 8u},
                                             {12, 1, k.asc},
                                             {13, 1, k.ascq}}); // fixed format, current
    std::copy_n(bytes.begin(), hdr.sbp != nullptr ? hdr.sb_len_wr : 0, hdr.sbp);
    return 0;
}

// The media of tests/data/mmc/media.txt, described there.
namespace media {
namespace {
using Numbers = std::vector<uint32_t>;

// Each item padded with zeros to nine numbers, the longest item there is.
std::vector<Numbers> itemsOf(const std::string &column)
{
    std::vector<Numbers> items;
    std::istringstream words(column);
    for (std::string word; words >> word;) {
        std::replace(word.begin(), word.end(), ',', ' ');
        std::istringstream in(word);
        in.unsetf(std::ios::basefield); // 0x for hex
        items.emplace_back(std::istream_iterator<uint32_t>(in), std::istream_iterator<uint32_t>());
        items.back().resize(9);
    }
    return items;
}

Medium mediumOf(std::vector<std::string> column)
{
    column.resize(6);
    const std::vector<Numbers> head = itemsOf(column[1]);
    Medium m{static_cast<uint16_t>(head.at(0)[0]), static_cast<uint8_t>(head.at(1)[0])};
    m.present = column[1].find("absent") == std::string::npos;
    for (const Numbers &t : itemsOf(column[2])) {
        m.tracks.push_back({t[0], t[1], t[2]});
    }
    for (const Numbers &c : itemsOf(column[3])) {
        m.capacities.push_back({c[0], c[1], c[2]});
    }
    for (const Numbers &p : itemsOf(column[4])) {
        m.physical = Physical{p[0], p[1], p[2], p[3] != 0, p[4] != 0};
    }
    for (const Numbers &n : itemsOf(column[5])) {
        m.atip = Atip{n[0] << 16 | n[1] << 8 | n[2], n[3] << 16 | n[4] << 8 | n[5], n[6], n[8],
                      n[7] != 0};
    }
    return m;
}

} // namespace

const Medium &byName(const std::string &name)
{
    static const auto table = [] {
        std::map<std::string, Medium> out;
        std::istringstream lines(readFile(DVR_TEST_DATA_DIR "/mmc/media.txt"));
        for (std::string line; std::getline(lines, line);) {
            std::vector<std::string> column;
            std::istringstream cells(line);
            for (std::string cell; line[0] != '#' && std::getline(cells, cell, '|');) {
                column.push_back(cell);
            }
            if (column.size() > 1) {
                out[column[0].substr(0, column[0].find_last_not_of(' ') + 1)] = mediumOf(column);
            }
        }
        return out;
    }();
    return table.at(name);
}

const Medium &kDisk = byName("hard disk"), &kNone = byName("no medium");
} // namespace media

} // namespace fake
