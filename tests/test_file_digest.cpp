// The check of a file against a side file written by md5sum.
#include <gtest/gtest.h>

#include <cstdlib>

#include "COMMON.h"
#include "test_support.h"

namespace {

using fake::withoutLineNumbers;

class CheckFileMd5 : public testing::Test {
protected:
    void SetUp() override
    {
        file = dir.write("clip.ts", "recorded data\n");
        digest = md5sum("");
    }
    // What md5sum prints for the file, with options, run in the file's directory.
    std::string md5sum(const std::string &options, const std::string &name = "clip.ts")
    {
        const std::string cmd = "cd '" + dir.path() + "' && md5sum " + options + " " + name + " > out.txt";
        EXPECT_EQ(system(cmd.c_str()), 0);
        return fake::readFile(dir.file("out.txt"));
    }
    int check(const std::string &side, const char *suffix = nullptr, std::string *log = nullptr)
    {
        dir.write(std::string("clip.ts") + (suffix != nullptr ? suffix : ".md5"), side);
        int rc = 0;
        const std::string out = fake::captureStdout([&] { rc = COM_CheckFileMD5(file.c_str(), suffix); });
        if (log != nullptr) {
            *log = withoutLineNumbers(out);
        }
        return rc;
    }
    std::string failure(const std::string &recorded) const
    {
        return "COM_CheckFileMD5(" + file + ") failed\n  => [" + digest.substr(0, 32) + "] vs [" + recorded + "]\n";
    }

    fake::TempDir dir;
    std::string file, digest;
};

TEST_F(CheckFileMd5, AcceptsWhatMd5sumWrites)
{
    std::string log;
    EXPECT_EQ(check(md5sum(""), nullptr, &log), 0);
    EXPECT_EQ(log, "file_digest.cpp,N: md5sum(" + file + ") passed\n");
    EXPECT_EQ(check(md5sum("", "\"$PWD/clip.ts\"")), 0); // a directory before the name
    EXPECT_EQ(check(digest.substr(0, 32) + "\t/elsewhere/clip.ts\r\n"), 0);
    EXPECT_EQ(check(md5sum(""), ".sum"), 0);              // the suffix is appended
    EXPECT_EQ(check(md5sum(""), "_old.md5"), 0);
}

TEST_F(CheckFileMd5, MismatchesAreReported)
{
    const std::string good = digest.substr(0, 32);
    std::string upper = good;
    for (char &c : upper) {
        c = static_cast<char>(toupper(c));
    }
    const std::pair<std::string, std::string> cases[] = {
        {upper + "  clip.ts\n", upper},
        {"clip.ts  " + good + "\n", ""}, // the name first: no recorded digest
        {std::string(32, '0') + "  clip.ts\n", std::string(32, '0')},
    };
    for (const auto &[side, recorded] : cases) {
        std::string log;
        EXPECT_EQ(check(side, nullptr, &log), -1);
        EXPECT_EQ(log, failure(recorded));
    }
}

TEST_F(CheckFileMd5, SideFilesThatDoNotNameTheFile)
{
    const std::string cases[] = {
        md5sum("-b"),    // "*clip.ts": the star is part of the name
        md5sum("--tag"), // "MD5 (clip.ts) = ..."
        // Only the first line counts.
        digest.substr(0, 32) + "  other.ts\n" + digest.substr(0, 32) + "  clip.ts\n",
        "",
    };
    for (const std::string &side : cases) {
        std::string log;
        EXPECT_EQ(check(side, nullptr, &log), -1) << side;
        EXPECT_EQ(log, side.empty() ? "file_digest.cpp,N: Can't read md5 in [" + file + ".md5]\n" : "") << side;
    }
    std::string log = fake::captureStdout([&] { EXPECT_EQ(COM_CheckFileMD5(file.c_str(), ".none"), -1); });
    EXPECT_EQ(withoutLineNumbers(log), "file_digest.cpp,N: Can't read md5 in [" + file + ".none]\n");
}

} // namespace
