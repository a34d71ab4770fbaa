// The bus layer where its log or records differ from run to run or between
// the targets; the other cases are in tests/cases/i2c/bus.case.
#include <gtest/gtest.h>

#include <fcntl.h>

#include "DVR_I2C.h"
#include "fake_board.h"
#include "test_support.h"

namespace {

// A failed page stops the write and keeps the pages before it; the log names
// the page's data by its address.
TEST(I2CBus, FailedPageStopsTheWriteAndKeepsEarlierPages)
{
    auto board = std::make_shared<fake::Board>();
    fake::addDevice(ZL740_DRIVER_PATH, board);
    gI2CDriverFd = open(ZL740_DRIVER_PATH, O_RDWR);
    std::vector<uint8_t> data(96, 0xAB);
    board->failNext(fake::Board::kWritePage, 17, EIO, 1); // the first page goes through
    const std::string log =
        fake::logOf([&] { EXPECT_EQ(DVR_SendI2CBlock(0xA0, 0, 96, data.data()), -1); });
    COM_SafeClose(&gI2CDriverFd);
    EXPECT_EQ(board->requests().size(), 1u + 17u);
    EXPECT_EQ(board->memory(0xA0)[0] * 256 + board->memory(0xA0)[0x20], 0xAB00);
    EXPECT_EQ(log.substr(0, 57), "i2c_bus.cpp,N: [1/1] ZL740_IOCTL_I2C_WRITE(0xA0, 0x20, 0x");
}

#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
TEST(I2CBus, BoardRecordsAreBigEndianBytes)
{
    auto board = std::make_shared<fake::Board>();
    board->addChip(0x50, 1, 1, 0x1000);
    fake::addDevice(ZL740_DRIVER_PATH, board);
    gI2CDriverFd = open(ZL740_DRIVER_PATH, O_RDWR);
    uint8_t two[2] = {0x12, 0x34};
    DVR_SendI2CBlock(0x50, 0x0102, 2, two);
    COM_SafeClose(&gI2CDriverFd);
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

} // namespace
