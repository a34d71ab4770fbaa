// The bus layer against the fake board driver: the records the driver
// receives, chunking, retries, EEPROM pages and the failure limit.
#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <numeric>

#include "DVR_I2C.h"
#include "fake_board.h"
#include "test_support.h"

namespace {

using fake::Board;
using fake::wordAt;

constexpr size_t kLengthOffset = sizeof(void *) == 4 ? 16 : 24;

struct Seen {
    char kind; // 'R' read, 'W' write, 'P' page write
    uint32_t reg;
    uint32_t length;
    bool operator==(const Seen &) const = default;
};

std::ostream &operator<<(std::ostream &os, const Seen &s)
{
    return os << s.kind << "(0x" << std::hex << s.reg << ", " << std::dec << s.length << ")";
}

class I2CBus : public testing::Test {
protected:
    void SetUp() override
    {
        board = std::make_shared<Board>();
        board->addChip(0x50, 1, 1, 0x1000); // room for multi-chunk transfers
        fake::addDevice(ZL740_DRIVER_PATH, board);
        gI2CDriverFd = open(ZL740_DRIVER_PATH, O_RDWR);
        ASSERT_GE(gI2CDriverFd, 0);
        std::fill(std::begin(gI2CFailCount), std::end(gI2CFailCount), 0);
    }
    void TearDown() override { COM_SafeClose(&gI2CDriverFd); }

    std::vector<Seen> seen() const
    {
        std::vector<Seen> out;
        for (const auto &r : board->requests()) {
            if (r.code == ZL740_IOCTL_I2C_WRITE_PAGE) {
                out.push_back({'P', wordAt(r.bytes, 4), I2C_EEPROM_PAGE});
            } else {
                out.push_back({r.code == ZL740_IOCTL_I2C_READ ? 'R' : 'W', wordAt(r.bytes, 4),
                               wordAt(r.bytes, kLengthOffset)});
            }
        }
        return out;
    }

    std::shared_ptr<Board> board;
};

// The channel and register width by ID, and where each record carries them.
TEST_F(I2CBus, TransferRecordCarriesIdChannelAndWidth)
{
    struct Case {
        uint8_t id;
        uint8_t channel;
        uint32_t regWidth;
    };
    const Case cases[] = {{0xA0, 1, 2}, {0xD0, 1, 1}, {0xDC, 0, 2}, {0x6C, 0, 1}};
    for (const Case &c : cases) {
        board->clearRequests();
        uint8_t byte = 0;
        DVR_ReadI2CBlock(c.id, 0x45, 1, &byte);
        const auto reqs = board->requests();
        ASSERT_EQ(reqs.size(), 1u);
        const auto &b = reqs[0].bytes;
        ASSERT_EQ(b.size(), sizeof(void *) == 4 ? 20u : 32u);
        EXPECT_EQ(reqs[0].code, ZL740_IOCTL_I2C_READ);
        EXPECT_EQ(b[0], c.id);
        EXPECT_EQ(b[1], c.channel) << std::hex << int(c.id);
        EXPECT_EQ(b[2] | b[3], 0);
        EXPECT_EQ(wordAt(b, 4), 0x45u);
        EXPECT_EQ(wordAt(b, 8), c.regWidth);
        EXPECT_EQ(wordAt(b, kLengthOffset), 1u);
    }
}

TEST_F(I2CBus, PageRecordCarriesWholeChannelAfterWidth)
{
    gI2CChannelA0 = 0x01020304;
    uint8_t page[32];
    std::iota(page, page + 32, 0x40);
    DVR_SendI2CBlock(0xA0, 0x60, 32, page);
    gI2CChannelA0 = 1;
    const auto reqs = board->requests();
    ASSERT_EQ(reqs.size(), 1u);
    const auto &b = reqs[0].bytes;
    ASSERT_EQ(b.size(), 48u);
    EXPECT_EQ(reqs[0].code, ZL740_IOCTL_I2C_WRITE_PAGE);
    EXPECT_EQ(b[0], 0xA0);
    EXPECT_EQ(b[1] | b[2] | b[3], 0);
    EXPECT_EQ(wordAt(b, 4), 0x60u);
    EXPECT_EQ(wordAt(b, 8), 2u);
    EXPECT_EQ(wordAt(b, 12), 0x01020304u);
    EXPECT_TRUE(std::equal(page, page + 32, b.begin() + 16));
}

#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
// On the board the words go high byte first, as the driver expects.
TEST_F(I2CBus, BoardRecordsAreBigEndianBytes)
{
    uint8_t two[2] = {0x12, 0x34};
    DVR_SendI2CBlock(0x50, 0x0102, 2, two);
    const auto reqs = board->requests();
    ASSERT_EQ(reqs.size(), 1u);
    std::vector<uint8_t> expect = {0x50, 0x00, 0x00, 0x00, 0x00, 0x00,
                                   0x01, 0x02, 0x00, 0x00, 0x00, 0x01};
    expect.resize(16);
    memcpy(&expect[12], reqs[0].bytes.data() + 12, 4); // the staging buffer's address
    expect.insert(expect.end(), {0x00, 0x00, 0x00, 0x02});
    EXPECT_EQ(reqs[0].bytes, expect);
    EXPECT_EQ(reqs[0].code, 0xC0144474UL);
}
#endif

TEST_F(I2CBus, LongWriteIsCutIntoChunksOf1024)
{
    std::vector<uint8_t> data(3000);
    std::iota(data.begin(), data.end(), 0);
    ASSERT_EQ(DVR_SendI2CBlock(0x50, 0x10, 3000, data.data()), 0);
    EXPECT_EQ(seen(),
              (std::vector<Seen>{{'W', 0x10, 1024}, {'W', 0x410, 1024}, {'W', 0x810, 952}}));
    EXPECT_TRUE(std::equal(data.begin(), data.end(), board->memory(0x50).begin() + 0x10));
}

TEST_F(I2CBus, FailedReadChunkLeavesFFInThatChunkOnly)
{
    auto &mem = board->memory(0x50);
    std::fill(mem.begin(), mem.end(), 0x11);
    std::vector<uint8_t> buf(3000, 0x55);
    ASSERT_EQ(DVR_ReadI2CBlock(0x50, 0, 1024, buf.data()), 0);
    board->clearRequests();
    board->failNext(Board::kRead, 1, EIO);
    EXPECT_EQ(DVR_ReadI2CBlock(0x50, 0, 3000, buf.data()), -1);
    EXPECT_EQ(seen(), (std::vector<Seen>{{'R', 0, 1024}}));
    EXPECT_TRUE(std::all_of(buf.begin(), buf.begin() + 1024, [](uint8_t b) { return b == 0xFF; }));
    EXPECT_TRUE(std::all_of(buf.begin() + 1024, buf.end(), [](uint8_t b) { return b == 0x55; }));
    EXPECT_EQ(DVR_ReadI2CBlock(0x50, 0, 0, buf.data()), 0);
    EXPECT_EQ(board->requests().size(), 1u);
}

TEST_F(I2CBus, WriteRetriesShareOneBudgetPerCall)
{
    struct Case {
        int firstChunkFailures;
        int secondChunkFailures;
        int result;
    };
    // The 17th failure of a call ends it; chunks don't get fresh budgets.
    const Case cases[] = {{16, 0, 0}, {17, 0, -1}, {10, 6, 0}, {10, 7, -1}, {0, 16, 0}};
    for (const Case &c : cases) {
        board = std::make_shared<Board>();
        board->addChip(0x50, 1, 1, 0x1000);
        fake::addDevice(ZL740_DRIVER_PATH, board);
        COM_SafeClose(&gI2CDriverFd);
        gI2CDriverFd = open(ZL740_DRIVER_PATH, O_RDWR);
        board->failNext(Board::kWrite, c.firstChunkFailures, EIO);
        board->failNext(Board::kWrite, c.secondChunkFailures, EIO, 1);
        std::vector<uint8_t> data(2048, 0x5A);
        const std::string log = fake::captureStdout(
            [&] { EXPECT_EQ(DVR_SendI2CBlock(0x50, 0, 2048, data.data()), c.result); });
        EXPECT_EQ(log.empty(), c.result == 0) << log;
    }
}

TEST_F(I2CBus, WriteFailureMessageAndEfaultSilence)
{
    uint8_t data[2] = {0x30, 0x31};
    board->failNext(Board::kWrite, 17, EIO);
    std::string log =
        fake::captureStdout([&] { EXPECT_EQ(DVR_SendI2CBlock(0x6C, 0x45, 2, data), -1); });
    EXPECT_EQ(
        fake::withoutLineNumbers(log),
        "i2c_bus.cpp,N: [0] ZL740_IOCTL_I2C_WRITE(0x6C, 0x45, 0x30) error : Input/output error\n");
    EXPECT_EQ(board->requests().size(), 17u);

    board->failNext(Board::kWrite, 17, EFAULT);
    log = fake::captureStdout([&] { EXPECT_EQ(DVR_SendI2CBlock(0x6C, 0x45, 2, data), -1); });
    EXPECT_EQ(log, "");

    board->failNext(Board::kWrite, 16, EIO);
    log = fake::captureStdout([&] { EXPECT_EQ(DVR_SendI2CBlock(0x6C, 0x45, 2, data), 0); });
    EXPECT_EQ(log, "");
}

struct PageCase {
    uint32_t addr;
    int32_t length;
    std::vector<Seen> expect;
};

class EepromPages : public I2CBus, public testing::WithParamInterface<PageCase> {};

TEST_P(EepromPages, WritesWholePagesWithReadModifyWrite)
{
    const PageCase &c = GetParam();
    auto &mem = board->memory(0xA0);
    for (size_t i = 0; i < mem.size(); ++i) {
        mem[i] = static_cast<uint8_t>(i * 7 + 3);
    }
    const std::vector<uint8_t> before = mem;
    std::vector<uint8_t> data(static_cast<size_t>(c.length));
    std::iota(data.begin(), data.end(), 0xC0);

    ASSERT_EQ(DVR_SendI2CBlock(0xA0, c.addr, c.length, data.data()), 0);
    EXPECT_EQ(seen(), c.expect);
    std::vector<uint8_t> after = before;
    std::copy(data.begin(), data.end(), after.begin() + c.addr);
    EXPECT_EQ(mem, after);
}

INSTANTIATE_TEST_SUITE_P(
    Edges, EepromPages,
    testing::Values(
        PageCase{0x20, 32, {{'P', 0x20, 32}}},
        PageCase{
            0x1C,
            40,
            {{'R', 0x00, 28}, {'P', 0x00, 32}, {'P', 0x20, 32}, {'R', 0x44, 28}, {'P', 0x40, 32}}},
        PageCase{0x23, 1, {{'R', 0x20, 3}, {'R', 0x24, 28}, {'P', 0x20, 32}}},
        PageCase{0x1F, 1, {{'R', 0x00, 31}, {'P', 0x00, 32}}},
        PageCase{0x40, 0, {{'R', 0x40, 32}, {'P', 0x40, 32}}},
        PageCase{0x00, 64, {{'P', 0x00, 32}, {'P', 0x20, 32}}},
        PageCase{0xFFE0, 32, {{'P', 0xFFE0, 32}}}));

TEST_F(I2CBus, FailedPageStopsTheWriteAndKeepsEarlierPages)
{
    std::vector<uint8_t> data(96, 0xAB);
    board->failNext(Board::kWritePage, 17, EIO, 1); // the first page goes through
    const std::string log =
        fake::captureStdout([&] { EXPECT_EQ(DVR_SendI2CBlock(0xA0, 0, 96, data.data()), -1); });
    EXPECT_EQ(board->requests().size(), 1u + 17u);
    EXPECT_EQ(board->memory(0xA0)[0], 0xAB);
    EXPECT_EQ(board->memory(0xA0)[0x20], 0x00);
    EXPECT_NE(log.find("] ZL740_IOCTL_I2C_WRITE(0xA0, 0x20, 0x"), std::string::npos) << log;
    EXPECT_EQ(fake::withoutLineNumbers(log).rfind("i2c_bus.cpp,N: [1/1] ", 0), 0u) << log;
}

TEST_F(I2CBus, PageBudgetIsPerPage)
{
    std::vector<uint8_t> data(64, 0x77);
    board->failNext(Board::kWritePage, 16, EIO);
    ASSERT_EQ(DVR_SendI2CBlock(0xA0, 0, 64, data.data()), 0);
    EXPECT_EQ(board->memory(0xA0)[0x3F], 0x77);
}

// A page whose old bytes could not be read would carry 0xFF placeholders: it
// is never written, and the EEPROM keeps what it had.
TEST_F(I2CBus, PageWithFailedReadIsNotWritten)
{
    struct Case {
        uint32_t addr;
        int32_t length;
    };
    for (const Case c : {Case{0x23, 1}, Case{0x20, 4}, Case{0x1C, 40}}) {
        board->clearRequests();
        auto &mem = board->memory(0xA0);
        std::fill(mem.begin(), mem.end(), 0x42);
        std::vector<uint8_t> data(static_cast<size_t>(c.length), 0x99);
        board->failNext(Board::kRead, 1, EIO);
        const std::string log = fake::captureStdout(
            [&] { EXPECT_EQ(DVR_SendI2CBlock(0xA0, c.addr, c.length, data.data()), -1); });
        EXPECT_TRUE(std::all_of(mem.begin(), mem.end(), [](uint8_t b) { return b == 0x42; }));
        for (const Seen &s : seen()) {
            EXPECT_NE(s.kind, 'P');
        }
        EXPECT_NE(log.find("not written"), std::string::npos) << log;
    }
}

TEST_F(I2CBus, BadLengthsAndClosedDriver)
{
    uint8_t byte = 0;
    EXPECT_EQ(DVR_SendI2CBlock(0xA0, 0, -1, &byte), -1);
    EXPECT_EQ(DVR_SendI2CBlock(0x6C, 0, -5, &byte), 0);
    EXPECT_EQ(DVR_ReadI2CBlock(0x6C, 0, -5, &byte), 0);
    EXPECT_TRUE(board->requests().empty());

    int fd = -1;
    std::swap(fd, gI2CDriverFd);
    EXPECT_EQ(DVR_ReadI2CBlock(0x6C, 0, 1, &byte), -1);
    EXPECT_EQ(byte, 0xFF);
    const std::string log =
        fake::captureStdout([&] { EXPECT_EQ(DVR_SendI2CData(0x6C, 0, 1), -1); });
    // The text of errno is the kernel's (qemu answers ENOSYS where Linux says EBADF).
    EXPECT_EQ(fake::withoutLineNumbers(log).rfind(
                  "i2c_bus.cpp,N: [0] ZL740_IOCTL_I2C_WRITE(0x6C, 0x0, 0x1) error : ", 0),
              0u)
        << log;
    std::swap(fd, gI2CDriverFd);
}

TEST_F(I2CBus, SixteenFailedWritesTurnADeviceOff)
{
    board->failNext(Board::kWrite, 1000, EIO);
    std::string log;
    for (int i = 1; i <= 16; ++i) {
        log = fake::captureStdout([&] { EXPECT_EQ(DVR_SendI2CData(0x6C, 0x45, 1), -1); });
        EXPECT_EQ(log.find("is turnned off") != std::string::npos, i == 16) << i;
    }
    log = fake::withoutLineNumbers(log);
    EXPECT_EQ(log.substr(log.find('\n') + 1),
              "i2c_bus.cpp,N:DVR_SendI2CData(): Warning : I2C[0x6C] is turnned off\n");
    board->clearRequests();
    log = fake::captureStdout([&] { EXPECT_EQ(DVR_SendI2CData(0x6C, 0x45, 1), -1); });
    EXPECT_EQ(log, "");
    EXPECT_TRUE(board->requests().empty());
    uint8_t byte = 0;
    EXPECT_EQ(DVR_ReadI2CData(0x6C, 0x45, &byte), -1);
    EXPECT_TRUE(board->requests().empty());
}

TEST_F(I2CBus, ReadsNeverResetTheCountButAWriteDoes)
{
    uint8_t byte = 0;
    board->failNext(Board::kRead, 15, EIO);
    for (int i = 0; i < 15; ++i) {
        EXPECT_EQ(DVR_ReadI2CData(0xD0, 1, &byte), -1);
    }
    EXPECT_EQ(DVR_ReadI2CData(0xD0, 1, &byte), 0);
    EXPECT_EQ(gI2CFailCount[0xD0], 15);
    board->failNext(Board::kRead, 1, EIO);
    const std::string log = fake::captureStdout([&] { DVR_ReadI2CData(0xD0, 1, &byte); });
    EXPECT_EQ(fake::withoutLineNumbers(log),
              "i2c_bus.cpp,N:DVR_ReadI2CData(): Warning : I2C[0xD0] is turnned off\n");

    gI2CFailCount[0x6C] = 15;
    EXPECT_EQ(DVR_SendI2CData(0x6C, 1, 2), 0);
    EXPECT_EQ(gI2CFailCount[0x6C], 0);
}

} // namespace
