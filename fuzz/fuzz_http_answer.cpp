// What a peer answers to a command: the Content-Length scan and header end
// over raw received bytes (no terminator), the Digest challenge into a
// record's fixed members, and the HTML stripper and element extraction.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "COMMON.h"
#include "http_private.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // The received block exactly as long as the input, with nothing behind it.
    std::vector<char> block(data, data + size);
    http::scanContentLength(block.data(), static_cast<int>(size));
    http::findHeaderEnd(block.data(), static_cast<int>(size));

    // The first line is a tag name, the rest the answer text.
    const std::string all(reinterpret_cast<const char *>(data), size);
    const size_t cut = all.find('\n');
    const std::string tag = all.substr(0, cut == std::string::npos ? 0 : cut);
    std::vector<char> text(all.c_str(), all.c_str() + all.size() + 1);

    COM_HTTP_AUTH auth;
    memset(&auth, 0, sizeof auth);
    COM_ParseHttpDigestChallenge(text.data(), &auth);

    char *out = nullptr;
    for (int include = 0; include < 2; ++include) {
        if (COM_ExtractHtmlTag(tag.c_str(), text.data(), &out, include) > 0) {
            free(out);
            out = nullptr;
        }
    }
    if (COM_StripHtmlCode(text.data(), &out) > 0) {
        free(out);
    }
    return 0;
}
