// DNS replies as a hostile server might send them: the parsers must stay
// inside the reply and inside the caller's ten records.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "DNS.h"

namespace {
constexpr int kRecords = 10;
constexpr int kGuard = 2;
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // The reply in a block of exactly its size, so that ASan sees any read past it.
    std::vector<uint8_t> reply(data, data + size);
    for (auto parse : {DNS_ParserA, DNS_ParserMX}) {
        DnsRecord records[kRecords + kGuard];
        memset(records, 0, sizeof records);
        memset(&records[kRecords], 0xA5, kGuard * sizeof(DnsRecord));
        parse(reply.data(), static_cast<int>(reply.size()), records);
        for (size_t i = kRecords * sizeof(DnsRecord); i < sizeof records; ++i) {
            if (reinterpret_cast<const uint8_t *>(records)[i] != 0xA5) {
                abort(); // an eleventh record was written
            }
        }
    }
    return 0;
}
