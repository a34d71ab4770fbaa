// Operations of the digest case files (tests/cases/digest): MD5 and SHA-1 of
// memory, text and files, and the check against md5sum side files.
#include "case_runner.h"

namespace {
using cases::Args;

std::string hex(const uint8_t (&bytes)[COM_SHA1_SIZE])
{
    std::string s;
    for (const uint8_t b : bytes) {
        s += {"0123456789abcdef"[b >> 4], "0123456789abcdef"[b & 15]};
    }
    return s;
}

// The MD5 text written into a buffer one longer than it: no terminator.
std::string md5(void (*fn)(char *, const std::string &), const std::string &data)
{
    char out[COM_MD5_TEXT_SIZE + 2] = {};
    memset(out, 'X', COM_MD5_TEXT_SIZE + 1);
    fn(out, data);
    return out;
}

const cases::Register ops({
    {"MD5",
     [](Args &a) {
         return md5(
             [](char *out, const std::string &d) { COM_MakeBufMD5(out, d.data(), d.size()); },
             a.str(0));
     }},
    {"StrMD5",
     [](Args &a) {
         return md5([](char *out, const std::string &d) { COM_MakeStrMD5(out, d.c_str()); },
                    a.str(0));
     }},
    {"SHA1",
     [](Args &a) {
         uint8_t out[COM_SHA1_SIZE];
         COM_MakeBufSHA1(out, a.s(0), a.str(0).size());
         return hex(out);
     }},
    {"StrSHA1",
     [](Args &a) {
         uint8_t out[COM_SHA1_SIZE];
         COM_MakeStrSHA1(out, a.s(0));
         return hex(out);
     }},
    // Both digests of a file; the MD5 buffer reads "untouched" if not written.
    {"FileDigests",
     [](Args &a) {
         char md5Out[COM_MD5_TEXT_SIZE + 1] = "untouched";
         uint8_t sha1Out[COM_SHA1_SIZE] = {};
         COM_MakeFileMD5(md5Out, a.s(0));
         COM_MakeFileSHA1(sha1Out, a.s(0));
         return std::string(md5Out) + " " + hex(sha1Out);
     }},
    {"CheckFileMD5", [](Args &a) { return std::to_string(COM_CheckFileMD5(a.s(0), a.s(1))); }},
});

} // namespace
