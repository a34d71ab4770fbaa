// MD5 and SHA-1 of memory, text and files against the published test vectors
// and coreutils' md5sum and sha1sum, and the check against md5sum side files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>

#include "COMMON.h"
#include "test_support.h"

namespace {

std::string hex(const uint8_t (&bytes)[COM_SHA1_SIZE])
{
    std::string s;
    for (uint8_t b : bytes) {
        s += {"0123456789abcdef"[b >> 4], "0123456789abcdef"[b & 15]};
    }
    return s;
}

std::string md5(const std::string &data)
{
    char out[COM_MD5_TEXT_SIZE + 2] = "XXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXX"; // 33
    COM_MakeBufMD5(out, data.data(), data.size());
    EXPECT_EQ(out[COM_MD5_TEXT_SIZE], 'X'); // no terminator
    return std::string(out, COM_MD5_TEXT_SIZE);
}

std::string sha1(const std::string &data)
{
    uint8_t out[COM_SHA1_SIZE];
    COM_MakeBufSHA1(out, data.data(), data.size());
    return hex(out);
}

// What a shell command writes, run in the directory.
std::string shell(const fake::TempDir &dir, const std::string &cmd)
{
    EXPECT_EQ(system(("cd " + dir.path() + " && " + cmd + " > out").c_str()), 0) << cmd;
    return fake::readFile(dir.file("out"));
}

TEST(Digests, PublishedVectors)
{
    EXPECT_EQ(md5(""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(md5("abcdefghijklmnopqrstuvwxyz"), "c3fcd3d76192e4007dfb496cca67e13b");
    EXPECT_EQ(
        md5("12345678901234567890123456789012345678901234567890123456789012345678901234567890"),
        "57edf4a22be3c955ac49da2e2107b67a");
    EXPECT_EQ(md5(std::string(1000000, 'a')), "7707d6ae4e027c70eea2a935c2296f21");
    char text[COM_MD5_TEXT_SIZE + 1] = "";
    COM_MakeStrMD5(text, "message digest");
    EXPECT_STREQ(text, "f96b697d7cb7938d525a2f31aaf161d0");

    EXPECT_EQ(sha1("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
    EXPECT_EQ(sha1("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
    EXPECT_EQ(sha1(std::string(1000000, 'a')), "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
    uint8_t out[COM_SHA1_SIZE];
    COM_MakeStrSHA1(out, nullptr);
    EXPECT_EQ(hex(out), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
}

// Random files of every size around the block and padding boundaries, and
// across the file reader's 256-byte reads.
TEST(Digests, FilesMatchMd5sumAndSha1sum)
{
    fake::TempDir dir;
    std::mt19937 random(20240601);
    for (size_t size : {0, 1, 55, 56, 63, 64, 65, 119, 120, 255, 256, 257, 4099, 1048576 + 17}) {
        std::string data(size, '\0');
        std::generate(data.begin(), data.end(), [&] { return static_cast<char>(random()); });
        const std::string path = dir.write("f", data);
        char md5Out[COM_MD5_TEXT_SIZE + 1] = "";
        COM_MakeFileMD5(md5Out, path.c_str());
        EXPECT_EQ(md5Out + std::string("  f\n"), shell(dir, "md5sum f")) << size;
        EXPECT_EQ(md5Out, md5(data)) << size;
        uint8_t sha1Out[COM_SHA1_SIZE];
        const std::string log =
            fake::captureStdout([&] { COM_MakeFileSHA1(sha1Out, path.c_str()); });
        EXPECT_EQ(hex(sha1Out) + "  f\n", shell(dir, "sha1sum f")) << size;
        EXPECT_EQ(fake::withoutLineNumbers(log),
                  "file_digest.cpp,N: Digest = [" + hex(sha1Out) + "]\n");
    }
    char md5Out[] = "untouched";
    const std::string log = fake::captureStdout([&] { COM_MakeFileMD5(md5Out, "/nonexistent"); });
    EXPECT_STREQ(md5Out, "untouched");
    EXPECT_EQ(fake::withoutLineNumbers(log),
              "file_digest.cpp,N:COM_MakeFileMD5(): open(/nonexistent) fail : No such file or "
              "directory\n");
}

TEST(Digests, CheckAgainstWhatMd5sumWrites)
{
    fake::TempDir dir;
    const std::string file = dir.write("clip.ts", "recorded data\n");
    const std::string digest = shell(dir, "md5sum clip.ts").substr(0, 32);
    const auto check = [&](const std::string &side, const char *suffix = nullptr) {
        dir.write(std::string("clip.ts") + (suffix != nullptr ? suffix : ".md5"), side);
        int rc = 0;
        const std::string log =
            fake::captureStdout([&] { rc = COM_CheckFileMD5(file.c_str(), suffix); });
        return std::make_pair(rc, fake::withoutLineNumbers(log));
    };
    const auto passed = std::make_pair(0, "file_digest.cpp,N: md5sum(" + file + ") passed\n");
    const auto failed = [&](const std::string &recorded) {
        return std::make_pair(-1, "COM_CheckFileMD5(" + file + ") failed\n  => [" + digest +
                                      "] vs [" + recorded + "]\n");
    };
    const auto unnamed = std::make_pair(-1, std::string());
    std::string upper = digest;
    std::transform(upper.begin(), upper.end(), upper.begin(), ::toupper);

    EXPECT_EQ(check(shell(dir, "md5sum clip.ts")), passed);
    EXPECT_EQ(check(shell(dir, "md5sum $PWD/clip.ts")), passed); // any directory before the name
    EXPECT_EQ(check(digest + "\t/elsewhere/clip.ts\r\n", ".sum"), passed);
    EXPECT_EQ(check(upper + "  clip.ts\n"), failed(upper));
    EXPECT_EQ(check("clip.ts  " + digest + "\n"), failed("")); // the name first: no recorded digest
    EXPECT_EQ(check(shell(dir, "md5sum -b clip.ts")),
              unnamed); // "*clip.ts": the star is part of it
    EXPECT_EQ(check(shell(dir, "md5sum --tag clip.ts")), unnamed); // "MD5 (clip.ts) = ..."
    EXPECT_EQ(check(digest + "  other.ts\n" + digest + "  clip.ts\n"),
              unnamed); // only the first line
    EXPECT_EQ(check(""),
              std::make_pair(-1, "file_digest.cpp,N: Can't read md5 in [" + file + ".md5]\n"));
}

} // namespace
