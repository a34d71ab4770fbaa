#include "COMMON.h"
#include "com_log.h"

#include <cstring>
#include <string_view>

namespace {
struct MimeEntry {
    std::string_view extension;
    const char *type;
};

// Looked up from the top; the comparison is exact, so capitals don't match.
constexpr MimeEntry kMimeTable[] = {
    {"avi", "video/x-msvideo"}, {"rpt", "application/xml"}, {"txt", "text/plain"},
    {"log", "text/plain"},      {"jpg", "image/jpeg"},      {"jpe", "image/jpeg"},
    {"jpeg", "image/jpeg"},     {"gif", "image/gif"},       {"bmp", "image/x-ms-bmp"},
    {"pdf", "application/pdf"}, {"rar", "application/rar"}, {"xml", "application/xml"},
    {"zip", "application/zip"}, {"mpeg", "video/mpeg"},     {"mpg", "video/mpeg"},
    {"mpe", "video/mpeg"},      {"mp4", "video/mp4"},
};
constexpr const char *kDefaultMime = "text/plain";
} // namespace

const char *COM_GetMimeType(const char *fileName)
{
    const char *type = kDefaultMime;
    const char *dot = fileName != nullptr ? strrchr(fileName, '.') : nullptr;
    const char *extension = dot != nullptr ? dot + 1 : nullptr;
    if (extension != nullptr) {
        for (const MimeEntry &e : kMimeTable) {
            if (e.extension == extension) {
                type = e.type;
                break;
            }
        }
    }
    COM_LOG(nullptr, "[%s][%s] => [%s]\n", fileName != nullptr ? fileName : "(null)",
            extension != nullptr ? extension : "(null)", type);
    return type;
}
