// Text and markup from peers and files: the key extractors, the XML readers
// and the mail decoders must stay inside the text and the caller's buffers,
// whatever delimiters are missing.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "COMMON.h"

namespace {
// Small out buffers, so that long values hit the cut.
constexpr int kOutSize = 16;
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // The first line is the key, the rest the text; both as exact-size strings.
    const std::string all(reinterpret_cast<const char *>(data), size);
    const size_t cut = all.find('\n');
    const std::string key = all.substr(0, cut == std::string::npos ? 0 : cut);
    const std::string text = cut == std::string::npos ? all : all.substr(cut + 1);
    std::vector<char> t(text.c_str(), text.c_str() + text.size() + 1);
    std::vector<char> k(key.c_str(), key.c_str() + key.size() + 1);

    char out[kOutSize];
    COM_GetStrInDoubleQuotes(t.data(), k.data(), out, sizeof out);
    COM_GetStrInSingleQuotes(t.data(), k.data(), out, sizeof out);
    COM_GetStrBeforeNewLine(t.data(), k.data(), out, sizeof out);
    COM_GetStrBeforeSpace(t.data(), k.data(), out, sizeof out);
    COM_GetXMLData(t.data(), k.data(), out, sizeof out);
    COM_GetXMLAttribute(t.data(), k.data(), out, sizeof out);
    int first = 0, second = 0;
    COM_GetTwoNumbers(t.data(), static_cast<int>(text.size()), &first, &second);

    COM_XML_ITEM item;
    memset(&item, 0, sizeof item);
    snprintf(item.name, sizeof item.name, "%s", k.data());
    COM_ParserXmlData(t.data(), &item);

    std::vector<uint8_t> decoded(text.size() + 1);
    COM_DecodeQP(decoded.data(), t.data());
    COM_DecodeBase64(decoded.data(), t.data());
    return 0;
}
