#include "DNS.h"
#include "com_log.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {
// Fields of a reply, read by position; of the counts only the low byte counts.
constexpr int kAnswerCountLow = 7;
constexpr int kAuthorityCountLow = 9;
constexpr int kAdditionalCountLow = 11;
// An address record with a compressed owner name: pointer, type, class, time
// to live, data length 00 04, the address.
constexpr int kAddressRecordSize = 16;
constexpr int kRecordPointerLow = 1;
constexpr int kRecordType = 2;
constexpr int kRecordLength = 10;
constexpr uint8_t kTypeA[] = {0x00, 0x01};
constexpr int kRecordAddress = 12;
// The end of the question of an A query: root label, type 00 01 and the first
// byte of class IN.
constexpr uint8_t kQuestionEnd[] = {0x00, 0x00, 0x01, 0x00};
// From the root label of the question to the data of a first answer whose
// owner name is compressed.
constexpr int kFirstAnswerData = 17;
constexpr uint8_t kAddressLength[] = {0x00, 0x04};
// Records a count byte can announce.
constexpr int kMaxCounted = 255;

// A received reply. Bytes outside it read as zero, as the rest of the zeroed
// reply buffer does: whatever the counts and offsets say, no read leaves it.
struct Reply {
    const uint8_t *bytes;
    int length;

    uint8_t at(long i) const { return i >= 0 && i < length ? bytes[i] : 0; }
    bool has(long i, const uint8_t *pattern, int size) const
    {
        for (int k = 0; k < size; ++k) {
            if (at(i + k) != pattern[k]) {
                return false;
            }
        }
        return true;
    }
    // Four bytes as they stand, i.e. an address in network byte order.
    uint32_t address(long i) const
    {
        const uint8_t b[4] = {at(i), at(i + 1), at(i + 2), at(i + 3)};
        uint32_t a;
        memcpy(&a, b, sizeof a);
        return a;
    }
};

int byPreference(const void *a, const void *b)
{
    return static_cast<const DnsRecord *>(a)->preference -
           static_cast<const DnsRecord *>(b)->preference;
}
} // namespace

int DNS_ParserA(const uint8_t *pPacket, int length, DnsRecord *pRecords)
{
    if (pPacket == nullptr || pRecords == nullptr) {
        return -1;
    }
    const Reply reply = {pPacket, std::max(length, 0)};
    const int count = reply.at(kAnswerCountLow);
    if (count == 0) {
        return -1;
    }
    int cursor = 0;
    while (reply.length - cursor >= 4 && !reply.has(cursor, kQuestionEnd, sizeof kQuestionEnd)) {
        ++cursor;
    }
    // Step over answers of other data, such as a CNAME, to the first address.
    // Without a question end, or with no answer behind it, the step leaves the
    // reply and the search below finds nothing.
    cursor += kFirstAnswerData;
    while (!reply.has(cursor - 2, kAddressLength, sizeof kAddressLength) && cursor < reply.length) {
        ++cursor;
    }
    if (cursor >= reply.length) {
        return -1;
    }
    // The addresses are taken to follow each other, one record apart. Entries
    // past the caller's array would change nothing it sees.
    DnsRecord found[DNS_MAX_RECORDS];
    memset(found, 0, sizeof found);
    const int kept = std::min(count, DNS_MAX_RECORDS);
    for (int i = 0; i < kept; ++i) {
        found[i].addr = reply.address(cursor);
        if (found[i].addr == 0) {
            continue;
        }
        found[i].valid = 1;
        found[i].type = DNS_TYPE_A;
        if (reply.length - cursor <= kAddressRecordSize) {
            break;
        }
        cursor += kAddressRecordSize;
    }
    memcpy(pRecords, found, static_cast<size_t>(kept) * sizeof *found);
    return 0;
}

int DNS_ParserMX(const uint8_t *pPacket, int length, DnsRecord *pRecords)
{
    if (pPacket == nullptr || pRecords == nullptr) {
        return -1;
    }
    const Reply reply = {pPacket, std::max(length, 0)};
    const int additional = reply.at(kAdditionalCountLow);
    if (additional == 0) {
        return -1;
    }
    // The last records of the section, as many as the authority count, are
    // taken for the authority's addresses and left aside.
    const int taken = std::max(additional - reply.at(kAuthorityCountLow), 1);
    const int section = reply.length - kAddressRecordSize * additional;
    if (section <= 0) {
        COM_LOG(__func__, "Packet Size error!\n");
        return -1;
    }
    // The section is found from the end by its size: it holds what it is taken
    // for only if each of its records says, by type and length, that it is an
    // A record of 16 bytes. Any other record (an AAAA of a mail host, say)
    // makes the reading fail, so that the lookup goes on with an A query.
    for (int i = 0; i < additional; ++i) {
        const int record = section + i * kAddressRecordSize;
        if (!reply.has(record + kRecordType, kTypeA, sizeof kTypeA) ||
            !reply.has(record + kRecordLength, kAddressLength, sizeof kAddressLength)) {
            return -1;
        }
    }
    DnsRecord hosts[kMaxCounted];
    memset(hosts, 0, sizeof hosts);
    for (int i = 0; i < taken; ++i) {
        const int record = section + i * kAddressRecordSize;
        hosts[i].valid = 1;
        hosts[i].type = DNS_TYPE_MX;
        // The owner name points to the mail host's name in the MX answer,
        // whose preference ends in the byte in front of it.
        hosts[i].offset = reply.at(record + kRecordPointerLow);
        hosts[i].preference = reply.at(hosts[i].offset - 1L);
        hosts[i].addr = reply.address(record + kRecordAddress);
    }
    qsort(hosts, static_cast<size_t>(taken), sizeof *hosts, byPreference);
    memcpy(pRecords, hosts, static_cast<size_t>(std::min(taken, DNS_MAX_RECORDS)) * sizeof *hosts);
    return 0;
}
