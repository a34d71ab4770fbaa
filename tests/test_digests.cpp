// MD5 and SHA-1 of memory and text against the published test vectors, and of
// files against coreutils' md5sum and sha1sum.
#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>

#include "COMMON.h"
#include "test_support.h"

namespace {

std::string md5(const std::string &data)
{
    char out[COM_MD5_TEXT_SIZE + 1];
    memset(out, 'X', sizeof out);
    COM_MakeBufMD5(out, data.data(), data.size());
    EXPECT_EQ(out[COM_MD5_TEXT_SIZE], 'X'); // no terminator written
    return std::string(out, COM_MD5_TEXT_SIZE);
}

std::string hex(const uint8_t *bytes, size_t n)
{
    std::string s;
    char two[3];
    for (size_t i = 0; i < n; ++i) {
        snprintf(two, sizeof two, "%02x", bytes[i]);
        s += two;
    }
    return s;
}

std::string sha1(const std::string &data)
{
    uint8_t out[COM_SHA1_SIZE];
    COM_MakeBufSHA1(out, data.data(), data.size());
    return hex(out, sizeof out);
}

// The first word coreutils' tool prints for the file.
std::string coreutils(const char *tool, const std::string &path)
{
    const std::string cmd = std::string(tool) + " '" + path + "'";
    FILE *p = popen(cmd.c_str(), "r");
    char line[256] = "";
    if (p != nullptr) {
        if (fgets(line, sizeof line, p) == nullptr) {
            line[0] = '\0';
        }
        pclose(p);
    }
    return std::string(line).substr(0, std::string(line).find(' '));
}

TEST(Md5, Rfc1321Suite)
{
    const std::pair<std::string, const char *> cases[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
        {std::string(1000000, 'a'), "7707d6ae4e027c70eea2a935c2296f21"},
    };
    for (const auto &[data, digest] : cases) {
        EXPECT_EQ(md5(data), digest) << data.size();
    }
    char out[COM_MD5_TEXT_SIZE + 1] = "";
    COM_MakeStrMD5(out, "message digest");
    EXPECT_STREQ(out, "f96b697d7cb7938d525a2f31aaf161d0");
}

TEST(Sha1, Fips180Vectors)
{
    const std::pair<std::string, const char *> cases[] = {
        {"", "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
        {"abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq", "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
        {[] { std::string s; for (int i = 0; i < 80; ++i) s += "01234567"; return s; }(),
         "dea356a2cddd90c7a7ecedc5ebb563934f460452"},
        {std::string(1000000, 'a'), "34aa973cd4c4daa4f61eeb2bdbad27316534016f"},
    };
    for (const auto &[data, digest] : cases) {
        EXPECT_EQ(sha1(data), digest) << data.size();
    }
    uint8_t out[COM_SHA1_SIZE];
    COM_MakeStrSHA1(out, nullptr);
    EXPECT_EQ(hex(out, sizeof out), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
    COM_MakeStrSHA1(out, "abc");
    EXPECT_EQ(hex(out, sizeof out), "a9993e364706816aba3e25717850c26c9cd0d89d");
}

// Random files of every size around the block and padding boundaries, and
// across the file reader's 256-byte reads.
TEST(FileDigests, MatchMd5sumAndSha1sum)
{
    fake::TempDir dir;
    std::mt19937 random(20240601);
    for (size_t size : {0, 1, 55, 56, 57, 63, 64, 65, 119, 120, 255, 256, 257, 4099, 65536 + 3, 1048576 + 17}) {
        std::string data(size, '\0');
        for (char &c : data) {
            c = static_cast<char>(random());
        }
        const std::string path = dir.write("f" + std::to_string(size), data);
        char md5Out[COM_MD5_TEXT_SIZE + 1] = "";
        COM_MakeFileMD5(md5Out, path.c_str());
        EXPECT_EQ(md5Out, coreutils("md5sum", path)) << size;
        EXPECT_EQ(md5Out, md5(data)) << size;

        uint8_t sha1Out[COM_SHA1_SIZE];
        const std::string log = fake::captureStdout([&] { COM_MakeFileSHA1(sha1Out, path.c_str()); });
        const std::string expected = coreutils("sha1sum", path);
        EXPECT_EQ(hex(sha1Out, sizeof sha1Out), expected) << size;
        EXPECT_EQ(fake::withoutLineNumbers(log), "file_digest.cpp,N: Digest = [" + expected + "]\n");
    }
}

TEST(FileDigests, UnreadableFileLeavesOutAsItWas)
{
    char md5Out[] = "untouched";
    uint8_t sha1Out[COM_SHA1_SIZE] = {1, 2, 3};
    const std::string log = fake::captureStdout([&] {
        COM_MakeFileMD5(md5Out, "/nonexistent/file");
        COM_MakeFileSHA1(sha1Out, "/nonexistent/file");
    });
    EXPECT_STREQ(md5Out, "untouched");
    EXPECT_EQ(sha1Out[0], 1);
    EXPECT_EQ(fake::withoutLineNumbers(log),
              "file_digest.cpp,N:COM_MakeFileMD5(): open(/nonexistent/file) fail : No such file or directory\n"
              "file_digest.cpp,N:COM_MakeFileSHA1(): open(/nonexistent/file) fail : No such file or directory\n");
}

} // namespace
