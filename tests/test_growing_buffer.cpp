// The growing heap buffer and the hexadecimal digit reader over real pipes.
#include <gtest/gtest.h>

#include <cstdlib>
#include <unistd.h>

#include "COMMON.h"
#include "test_support.h"

namespace {

using fake::captureStdout;
using fake::withoutLineNumbers;

TEST(ReallocAndCopyBuf, GrowsClearsAndCopies)
{
    char *buf = nullptr;
    ASSERT_EQ(COM_ReallocAndCopyBuf(6, &buf, 0, "abc", 3), buf); // null block: an allocation
    EXPECT_EQ(std::string(buf, 6), std::string("abc\0\0\0", 6));
    ASSERT_NE(COM_ReallocAndCopyBuf(8, &buf, 6, "", 0), nullptr); // grows and clears only
    EXPECT_EQ(std::string(buf, 8), std::string("abc\0\0\0\0\0", 8));
    ASSERT_NE(COM_ReallocAndCopyBuf(4, &buf, 1, "XY", 2), nullptr); // what was behind the offset goes
    EXPECT_EQ(std::string(buf, 4), std::string("aXY\0", 4));

    // Records of another type, as the thread table keeps them.
    struct Pair {
        int a, b;
    } *pairs = nullptr;
    const Pair one{1, 2};
    ASSERT_NE(COM_ReallocAndCopyBuf(2 * sizeof(Pair), &pairs, 0, &one, sizeof one), nullptr);
    EXPECT_EQ(pairs[0].b, 2);
    EXPECT_EQ(pairs[1].a, 0);
    free(pairs);

    // Data that would not fit, or a size that would free the block, are refused.
    char *kept = buf;
    const std::string log = withoutLineNumbers(captureStdout([&] {
        EXPECT_EQ(COM_ReallocAndCopyBuf(4, &buf, 3, "XY", 2), nullptr);
        EXPECT_EQ(COM_ReallocAndCopyBuf(0, &buf, 0, "", 0), nullptr);
    }));
    EXPECT_EQ(buf, kept);
    EXPECT_EQ(std::string(buf, 4), std::string("aXY\0", 4));
    EXPECT_EQ(log, "growing_buffer.cpp,N:COM_ReallocAndCopyBuf(): REALLOC(4) failed : Invalid argument\n"
                   "growing_buffer.cpp,N:COM_ReallocAndCopyBuf(): REALLOC(0) failed : Invalid argument\n");
    free(buf);
}

int hexOf(const std::string &input, char **buf)
{
    int p[2];
    if (pipe(p) != 0) {
        return -99;
    }
    if (write(p[1], input.data(), input.size()) != static_cast<ssize_t>(input.size())) {
        return -98;
    }
    close(p[1]);
    const int n = COM_ReadHexDataInStrFormat(p[0], buf);
    close(p[0]);
    return n;
}

TEST(ReadHexData, KeepsOnlyDigitsInOrderAndCase)
{
    char *buf = nullptr;
    EXPECT_EQ(hexOf("0a:1B\n", &buf), 4);
    EXPECT_EQ(std::string(buf, 4), "0a1B");

    // Across several 80-byte blocks; a zero byte ends its block's scan.
    std::string input;
    std::string digits;
    for (int i = 0; i < 100; ++i) {
        char pair[8];
        snprintf(pair, sizeof pair, "%02X:g ", i);
        input += pair;
        digits += std::string(pair, 2);
    }
    input += std::string("ab\0cd", 5);
    EXPECT_EQ(hexOf(input, &buf), 202);
    EXPECT_EQ(std::string(buf, 202), digits + "ab");

    EXPECT_EQ(hexOf("xyz: !?\n", &buf), 0);
    EXPECT_EQ(COM_ReadHexDataInStrFormat(-1, &buf), -1);
    free(buf);
}

} // namespace
