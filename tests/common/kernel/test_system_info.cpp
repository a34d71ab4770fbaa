// System information from recorded kernel text, and the time operations.
#include <gtest/gtest.h>

#include "COMMON.h"
#include "test_support.h"

namespace {

class SystemInfo : public testing::Test {
protected:
    void SetUp() override
    {
        for (const char *prefix : {"/proc/bus/pci", "/proc/meminfo", "/proc/version", "/etc/SVN"}) {
            fake::redirect(prefix, dir.path() + prefix);
        }
    }
    std::string quiet(const std::function<void()> &fn) { return fake::logOf(fn); }
    fake::TempDir dir;
};

const char *const kPci = "0000\t10b50000\t0\tfe000000\tehci_hcd\n"
                         "0008\t10330035\t0\tfd000000\tOHCI_hcd\n"
                         "0010\t10330035\t0\tfc000000\tohci_hcd\n"
                         "0018\t1b4b9170\t0\tfb000000\tsata_mv\n";

TEST_F(SystemInfo, PciDevicesByDriverName)
{
    dir.write("proc/bus/pci/devices", kPci);
    uint32_t ids[3] = {};
    EXPECT_EQ(COM_GetPciDeviceId("hci_hcd", ids, 2), 2);
    EXPECT_EQ(ids[0], 0x10b50000u);
    EXPECT_EQ(ids[1], 0x10330035u);
    EXPECT_EQ(ids[2], 0u);
    EXPECT_EQ(COM_GetPciDeviceId("SATA", ids, 3), 1);
    EXPECT_EQ(ids[0], 0x1b4b9170u);
    EXPECT_EQ(COM_GetPciDeviceId("none", ids, 3), 0);

    EXPECT_EQ(quiet([] { EXPECT_EQ(COM_GetPciDevice("OHCI"), 2); }),
              "pci_info.cpp,N: Total 2 devices(OHCI) found on \"/proc/bus/pci/devices\"\n");
    EXPECT_EQ(quiet([&] { EXPECT_EQ(COM_GetPciDeviceId(nullptr, ids, 3), -1); }),
              "pci_info.cpp,N:COM_GetPciDeviceId(): Warnning!! (*pBuf != NULL)\n");
}

TEST_F(SystemInfo, PciListMissing)
{
    uint32_t ids[1];
    EXPECT_EQ(quiet([&] { EXPECT_EQ(COM_GetPciDeviceId("x", ids, 1), -1); }),
              "pci_info.cpp,N:COM_GetPciDeviceId(): fopen(/proc/bus/pci/devices) error : No such "
              "file or directory\n");
}

TEST_F(SystemInfo, FreeMemoryFromTheSummaryLines)
{
    dir.write("proc/meminfo", "        total:    used:    free:  shared: buffers:  cached:\n"
                              "Mem:  262144000 200000000 62144000 0 1000 2000\n"
                              "Swap: 0 0 0\n"
                              "MemTotal:       256000 kB\n");
    int mem = 0, swap = 7;
    EXPECT_EQ(quiet([&] { EXPECT_EQ(COM_GetFreeMemAndSwap(&mem, &swap), 0); }),
              "mem_info.cpp,N:COM_GetFreeMemAndSwap(): Free - (Mem, Swap) = (62144000, 0)\n");
    EXPECT_EQ(quiet([&] { EXPECT_EQ(COM_GetFreeMemAndSwap(&mem, &swap), 0); }), "");
    EXPECT_EQ(quiet([] { EXPECT_EQ(COM_GetFreeMemAndSwap(nullptr, nullptr), 0); }), "");

    // A kernel without the summary lines.
    dir.write("proc/meminfo", "MemTotal:       256000 kB\nMemFree:  1000 kB\n");
    EXPECT_EQ(COM_GetFreeMemAndSwap(&mem, &swap), -1);
    EXPECT_EQ(mem, 62144000);
    dir.write("proc/meminfo", "Mem:  1 2\n");
    EXPECT_EQ(COM_GetFreeMemAndSwap(&mem, &swap), -1);
}

TEST_F(SystemInfo, KernelVersion)
{
    struct Case {
        const char *text;
        const char *version;
        const char *rest;
    };
    const Case cases[] = {
        {"Linux version 2.6.24-abc (root@build) (gcc 4.2) #1 PREEMPT\n", "2.6.24", "abc"},
        {"Linux version 6.1.0-18-amd64 (debian-kernel)\n", "6.1.0", "18-amd64"},
        {"Linux version 2.6.24-abc", "2.6.24", ""}, // the rest runs to the end
        {"Linux version 2.6.24", "", ""},           // so do the digits
        {"Linux version 2.6", "", ""},
        {"Linux 2.6.24-abc x", "", ""},
    };
    for (const Case &c : cases) {
        dir.write("proc/version", c.text);
        char version[COM_VERSION_TEXT_SIZE] = {};
        char rest[COM_VERSION_TEXT_SIZE] = {};
        COM_GetKernelVersion(version, rest);
        EXPECT_STREQ(version, c.version) << c.text;
        EXPECT_STREQ(rest, c.rest) << c.text;
    }
    COM_GetKernelVersion(nullptr, nullptr);
}

TEST_F(SystemInfo, RevisionWithFourDigits)
{
    struct Case {
        const char *text;
        const char *revision;
    };
    const Case cases[] = {
        {"Path: .\nRevision: 7\nNode Kind: directory\n", "0007"},
        {"Revision: 12345\n", "12345"},
        {"Revision: 1a2b\n", "1a2b"},
        {"Revision: 0123\n", "0123"},
        {"Revision: 123", ""}, // ends right behind the digits
        {"Last Changed Rev: 99\n", ""},
    };
    for (const Case &c : cases) {
        dir.write("etc/SVN", c.text);
        char revision[COM_VERSION_TEXT_SIZE] = {};
        COM_GetRevision(revision);
        EXPECT_STREQ(revision, c.revision) << c.text;
    }
}

TEST_F(SystemInfo, MimeTypes)
{
    const std::pair<const char *, const char *> cases[] = {
        {"clip.avi", "video/x-msvideo"},
        {"a.jpeg", "image/jpeg"},
        {"archive.tar.zip", "application/zip"},
        {"CLIP.AVI", "text/plain"},
        {"noext", "text/plain"},
        {"odd.xyz", "text/plain"},
        {"dir.mp4/file", "text/plain"},
        {"x.mp4", "video/mp4"},
        {nullptr, "text/plain"},
    };
    for (const auto &[name, type] : cases) {
        std::string log =
            quiet([&] { EXPECT_STREQ(COM_GetMimeType(name), type) << (name ? name : "null"); });
        EXPECT_EQ(log.rfind("mime_type.cpp,N: [", 0), 0u);
    }
    EXPECT_EQ(quiet([] { COM_GetMimeType("x.gif"); }),
              "mime_type.cpp,N: [x.gif][gif] => [image/gif]\n");
    EXPECT_EQ(quiet([] { COM_GetMimeType("x"); }),
              "mime_type.cpp,N: [x][(null)] => [text/plain]\n");
}

TEST(TimeOps, SubtractWithCarry)
{
    struct Case {
        timeval x, y, diff;
        int negative;
    };
    const Case cases[] = {
        {{1, 2}, {0, 999999}, {0, 3}, 0},
        {{5, 0}, {2, 250000}, {2, 750000}, 0},
        {{1, 500000}, {2, 0}, {-1, 500000}, 1},
        {{3, 1999999}, {1, 0}, {3, 999999}, 0},
    };
    for (Case c : cases) {
        timeval out{};
        EXPECT_EQ(COM_TimevalSubtract(&out, &c.x, &c.y), c.negative);
        EXPECT_EQ(out.tv_sec, c.diff.tv_sec);
        EXPECT_EQ(out.tv_usec, c.diff.tv_usec);
    }
}

TEST(TimeOps, MillisecondsWrapIn32Bits)
{
    fake::clock::enable(1'000'000'000);
    // 10^12 ms taken modulo 2^32, read as signed: -727379968.
    EXPECT_EQ(COM_GetTimeMs(), -727379968);
    fake::clock::enable(2'000'000);
    EXPECT_EQ(COM_GetTimeMs(), 2'000'000'000);
}

TEST(TimeOps, ExactSleepThatIsNotCutShort)
{
    fake::clock::enable();
    const struct timespec span = {2, 500};
    EXPECT_EQ(fake::captureStdout([&] { EXPECT_EQ(COM_SleepExact(&span, 5), 0); }), "");
    EXPECT_EQ(fake::clock::sleptNs(), 2'000'000'500);
}

} // namespace
