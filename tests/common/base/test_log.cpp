// The log line, the hexadecimal and terminal dumps, and the time prints.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "COMMON.h"
#include "test_support.h"

namespace {

using fake::captureStdout;

TEST(Log, PrefixWithAndWithoutFunction)
{
    EXPECT_EQ(captureStdout([] { COM_Printf("a.cpp", 7, "fn", "x=%d\n", 5); }),
              "a.cpp,7:fn(): x=5\n");
    EXPECT_EQ(captureStdout([] {
                  COM_Printf("a.cpp", 7, nullptr, "no feed");
                  COM_Printf("b.c", 1, nullptr, "!\n");
              }),
              "a.cpp,7: no feedb.c,1: !\n");
}

TEST(Log, MessagesPastTheFirstBufferArePrintedWhole)
{
    for (size_t len : {255u, 256u, 257u, 5000u}) {
        const std::string msg(len, 'm');
        int rc = 0;
        const std::string out =
            captureStdout([&] { rc = COM_Printf("f.c", 1, nullptr, "%s", msg.c_str()); });
        EXPECT_EQ(out, "f.c,1: " + msg) << len;
        EXPECT_EQ(rc, static_cast<int>(out.size()));
    }
}

TEST(HexDump, LinesOfSixteen)
{
    unsigned char bytes[17];
    for (int i = 0; i < 17; ++i) {
        bytes[i] = static_cast<unsigned char>(i);
    }
    char head[64];
    snprintf(head, sizeof head, "[ t ][%p]\n====\n", static_cast<void *>(bytes));
    const std::string sixteen = "00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F \n";
    EXPECT_EQ(captureStdout([&] { COM_DumpHex("t", bytes, 16); }), head + sixteen + "====\n");
    EXPECT_EQ(captureStdout([&] { COM_DumpHex("t", bytes, 17); }), head + sixteen + "10 \n====\n");
    EXPECT_EQ(captureStdout([&] { COM_DumpHex("t", bytes, 0); }), std::string(head) + "====\n");
    snprintf(head, sizeof head, "[ t ][%p]\n====\n", static_cast<void *>(nullptr));
    EXPECT_EQ(captureStdout([&] { COM_DumpHex("t", nullptr, 5); }), std::string(head) + "====\n");
}

TEST(HexDump, CharactersShowUnprintableAsQuestionMark)
{
    const unsigned char bytes[] = {'A', 0x00, 0x7F, ' ', 0x80};
    const std::string out = captureStdout([&] { COM_DumpHexChars("c", bytes, 5); });
    EXPECT_NE(out.find("\n====\n41[A] 00[?] 7F[?] 20[ ] 80[?] \n====\n"), std::string::npos) << out;
}

TEST(TermDump, FlagsAreListedWhenWhollyContained)
{
    EXPECT_EQ(captureStdout([] { COM_ShowTermFlags(" c_cflag", 0, gTermCFlagTable); }),
              " c_cflag = [0x0] : [B0]\n");
    // B9600 shares its bits with B50, B75 ... : every subset code is listed.
    const std::string out =
        captureStdout([] { COM_ShowTermFlags("x", B9600 | CS8, gTermCFlagTable); });
    EXPECT_NE(out.find(" [B9600]"), std::string::npos);
    EXPECT_NE(out.find(" [CSIZE]"), std::string::npos) << out;
    EXPECT_EQ(
        captureStdout([] { COM_ShowTermFlags("i", ICRNL | IXON, gTermIFlagTable); }),
        "i = [0x" +
            [] {
                char b[16];
                snprintf(b, sizeof b, "%X", ICRNL | IXON);
                return std::string(b);
            }() +
            "] : [ICRNL] [IXON]\n");
}

TEST(TermDump, ControlCharactersByIndex)
{
    struct termios t {};
    t.c_cc[VMIN] = 1;
    t.c_cc[VTIME] = 5;
    const std::string out =
        fake::withoutLineNumbers(captureStdout([&] { COM_ShowTermios("tty", &t); }));
    EXPECT_EQ(out.rfind("tty\n======\n", out.find("tty")), out.find("tty"));
    char line[64];
    snprintf(line, sizeof line, " [%02d/32] c_cc[VMIN] = 1\n", VMIN);
    EXPECT_NE(out.find(line), std::string::npos) << out;
    EXPECT_NE(out.find(" [31/32] c_cc[unknown] = 0\n======\n"), std::string::npos) << out;
}

TEST(TimePrint, UtcFormats)
{
    char text[COM_TIME_TEXT_SIZE];
    EXPECT_EQ(COM_FormatTime(text, 0), 0);
    EXPECT_STREQ(text, "1970/01/01 00:00:00");
    EXPECT_EQ(COM_FormatTime(text, 1700000000), 0);
    EXPECT_STREQ(text, "2023/11/14 22:13:20");
    EXPECT_EQ(captureStdout([] { COM_ShowTime("m.c", 3, 86399); }),
              "m.c,3: [86399] -> [1970/01/01 23:59:59]\n");
    EXPECT_EQ(captureStdout([] { COM_ShowTime(nullptr, 3, 60); }),
              "[60] -> [1970/01/01 00:01:00]\n");
    struct tm parts {};
    EXPECT_EQ(COM_GmTime(&parts, 86400), &parts);
    EXPECT_EQ(parts.tm_mday, 2);
}

TEST(TimePrint, CurrentTimeIsAPrefixWithMicroseconds)
{
    fake::clock::enable(1700000000);
    EXPECT_EQ(captureStdout([] { COM_ShowCurrentTime("m.c", 9); }),
              "m.c,9: [2023/11/14 22:13:20.000000] ");
    EXPECT_EQ(captureStdout([] { COM_ShowCurrentTime(nullptr, 9); }),
              "[2023/11/14 22:13:20.000000] ");
}

TEST(SafeClose, ClosesOnceAndResets)
{
    int fd = open("/dev/null", O_RDONLY);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(COM_SafeClose(&fd), 0);
    EXPECT_EQ(fd, -1);
    EXPECT_EQ(COM_SafeClose(&fd), -1);
    EXPECT_EQ(COM_SafeClose(nullptr), -1);
}

} // namespace
