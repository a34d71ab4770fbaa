// The tool as a user runs it: argument lines and batch files against the
// fake board, with what it prints.
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>

#include "DVR_I2C.h"
#include "fake_board.h"
#include "test_support.h"

namespace {

using fake::Board;

const char *const kUsage =
    "-------------------------------------------------------------\n"
    " i2c Usage (all number input should be in hex str)\n"
    "-------------------------------------------------------------\n"
    " [I2C ID] [I2C Addr] : read from specified ID, Addr\n"
    " [I2C ID] [I2C Addr] [I2C Data] : write to specified ID, Addr\n"
    "-------------------------------------------------------------\n"
    " -v : enable verbose message.\n"
    " -f [path] : read data from file.\n"
    "             data will be parsered by line based.\n"
    "             accept separator ',' ' ' or '\\t'\n"
    "             Ex. read original data from 6C,45[line1]\n"
    "                 write data(0x30) to 6C,45[line2] then read back[line3]\n"
    "             ============\n"
    "               6C,45\n"
    "               6C,45,30\n"
    "               6C,45\n"
    "             ============\n"
    "-------------------------------------------------------------\n";

class I2CTool : public testing::Test {
protected:
    void SetUp() override
    {
        board = std::make_shared<Board>();
        fake::addDevice(ZL740_DRIVER_PATH, board);
        std::fill(std::begin(gI2CFailCount), std::end(gI2CFailCount), 0);
    }

    // Runs the tool with these arguments and returns what it printed.
    std::string run(std::vector<std::string> args)
    {
        args.insert(args.begin(), "i2c");
        std::vector<char *> argv;
        for (auto &a : args) {
            argv.push_back(a.data());
        }
        argv.push_back(nullptr);
        int rc = -1;
        const std::string out = fake::captureStdout(
            [&] { rc = DVR_I2CToolMain(static_cast<int>(args.size()), argv.data()); });
        EXPECT_EQ(rc, 0);
        EXPECT_EQ(gI2CDriverFd, -1);
        return fake::withoutLineNumbers(out);
    }

    std::shared_ptr<Board> board;
    fake::TempDir dir;
};

TEST_F(I2CTool, NothingToDoPrintsUsageWithoutTheDriver)
{
    fake::removeDevice(ZL740_DRIVER_PATH); // an open would now fail and say so
    for (const auto &args : std::vector<std::vector<std::string>>{
             {}, {"6C"}, {"6C", "45", "30", "1"}, {"-v", "6C", "45", "30", "1", "2"}, {"-v"}}) {
        EXPECT_EQ(run(args), kUsage);
    }
    EXPECT_EQ(run({"-r"}), std::string("i2c_tool.cpp,N: Action [r]\n") + kUsage);
}

struct ToolCase {
    std::vector<std::string> args;
    std::string output;
};

class ToolLines : public I2CTool, public testing::WithParamInterface<ToolCase> {};

TEST_P(ToolLines, PrintsTheResultLine)
{
    board->memory(0x6C)[0x45] = 0x5A;
    board->memory(0xDC)[0x20] = 0xBE; // register 0x10, high byte first
    board->memory(0xDC)[0x21] = 0xEF;
    EXPECT_EQ(run(GetParam().args), GetParam().output);
}

INSTANTIATE_TEST_SUITE_P(
    Arguments, ToolLines,
    testing::Values(ToolCase{{"6C", "45"}, ""},
                    ToolCase{{"-v", "6C", "45"}, "[r] (0x6C, 0x45, 0x5A)\n"},
                    ToolCase{{"-v", "0x6c", "0x45"}, "[r] (0x6C, 0x45, 0x5A)\n"},
                    ToolCase{{"-v", "6C", "45", "130"}, "[w] (0x6C, 0x45, 0x30)\n"},
                    ToolCase{{"-v", "DC", "10"}, "[r] (0xDC, 0x10, 0xBEEF)\n"},
                    ToolCase{{"-v", "DC", "11", "1234"}, "[w] (0xDC, 0x11, 0x1234)\n"},
                    ToolCase{{"-v", "6C", "1ABCD"}, "[r] (0x6C, 0xABCD, 0xFF)\n"},
                    ToolCase{{"-v", "77", "1"}, "[r] (0x77, 0x1, 0xFF)\n"},
                    ToolCase{{"-v", "zz", "q"}, "[r] (0x0, 0x0, 0xFF)\n"},
                    ToolCase{{"-w", "-v", "6C", "45"},
                             "i2c_tool.cpp,N: Action [w]\n[r] (0x6C, 0x45, 0x5A)\n"},
                    ToolCase{{"-v", "-f", "/no/such/batch", "6C", "45"},
                             "i2c_tool.cpp,N: Using [/no/such/batch]\n[r] (0x6C, 0x45, 0x5A)\n"}));

TEST_F(I2CTool, WordDeviceSendsHighByteFirst)
{
    run({"DC", "10", "1234"});
    const auto reqs = board->requests();
    ASSERT_EQ(reqs.size(), 1u);
    EXPECT_EQ(fake::wordAt(reqs[0].bytes, sizeof(void *) == 4 ? 16 : 24), 2u);
    EXPECT_EQ(board->memory(0xDC)[0x20], 0x12);
    EXPECT_EQ(board->memory(0xDC)[0x21], 0x34);
}

TEST_F(I2CTool, IdAbove8BitsTakesTheBytePath)
{
    EXPECT_EQ(run({"-v", "1DC", "10", "1234"}), "[w] (0xDC, 0x10, 0x34)\n");
    const auto reqs = board->requests();
    ASSERT_EQ(reqs.size(), 1u);
    EXPECT_EQ(fake::wordAt(reqs[0].bytes, sizeof(void *) == 4 ? 16 : 24), 1u);
}

TEST_F(I2CTool, DriverThatCannotOpen)
{
    board->openErrno = ENODEV;
    EXPECT_EQ(run({"-v", "6C", "45"}),
              "i2c_tool.cpp,N: open(/dev/zl340_main) fail : No such device\n");
    EXPECT_EQ(run({"-f", dir.write("b", "6C,45\n")}),
              "i2c_tool.cpp,N: Using [" + dir.file("b") +
                  "]\n"
                  "i2c_tool.cpp,N: open(/dev/zl340_main) fail : No such device\n");
}

TEST_F(I2CTool, BatchFileThatCannotOpen)
{
    const std::string path = dir.file("missing");
    EXPECT_EQ(run({"-f", path}), "i2c_tool.cpp,N: Using [" + path + "]\nfopen(" + path +
                                     ") fail : No such file or directory\n");
    EXPECT_EQ(run({"-f", path, "6C"}), "i2c_tool.cpp,N: Using [" + path + "]\nfopen(" + path +
                                           ") fail : No such file or directory\n");
}

TEST_F(I2CTool, BatchReplaysLinesWithAnySeparators)
{
    board->memory(0x6C)[0x45] = 0x11;
    const std::string path = dir.write("batch",
                                       "6C,45\n"
                                       "6C, 45,\t30\r\n"
                                       "\n"
                                       "  6C 45  \n"
                                       "6C\n"
                                       "6C,45,30,1\n"
                                       "DC,10,ABCD\n"
                                       "DC,10\n"
                                       "6C,46,1ff"); // no final line feed
    EXPECT_EQ(run({"-v", "-f", path}), "i2c_tool.cpp,N: Using [" + path +
                                           "]\n"
                                           "[r] (0x6C, 0x45, 0x11)\n"
                                           "[w] (0x6C, 0x45, 0x30)\n"
                                           "[r] (0x6C, 0x45, 0x30)\n"
                                           "[w] (0xDC, 0x10, 0xABCD)\n"
                                           "[r] (0xDC, 0x10, 0xABCD)\n"
                                           "[w] (0x6C, 0x46, 0xFF)\n");
    EXPECT_EQ(run({"-f", path}), "i2c_tool.cpp,N: Using [" + path + "]\n");
}

TEST_F(I2CTool, BatchLineLongerThanTheBufferArrivesInPieces)
{
    // 255 blanks fill the first piece, which has no token; "6C,45" follows
    // as a line of its own.
    const std::string path = dir.write("long", std::string(255, ' ') + "6C,45\n");
    EXPECT_EQ(run({"-v", "-f", path}), "i2c_tool.cpp,N: Using [" + path +
                                           "]\n"
                                           "[r] (0x6C, 0x45, 0x0)\n");
    // Split inside the first token: "6" ends the first piece, "C,45" the next.
    const std::string split = dir.write("split", std::string(254, ' ') + "6C,45\n");
    EXPECT_EQ(run({"-v", "-f", split}), "i2c_tool.cpp,N: Using [" + split +
                                            "]\n"
                                            "[r] (0xC, 0x45, 0xFF)\n");
}

TEST_F(I2CTool, BatchOfLoneValuesOpensAndClosesTheDriverOnly)
{
    const std::string path = dir.write("lone", "6C\n45\n30\n");
    EXPECT_EQ(run({"-v", "-f", path}), "i2c_tool.cpp,N: Using [" + path + "]\n");
    EXPECT_TRUE(board->requests().empty());
}

TEST_F(I2CTool, BatchCountsFailuresAcrossLines)
{
    std::string lines;
    for (int i = 0; i < 17; ++i) {
        lines += "77,1,2\n";
    }
    board->failNext(Board::kWrite, 1000, EIO);
    const std::string path = dir.write("dead", lines);
    const std::string out = run({"-f", path});
    EXPECT_EQ(board->requests().size(), 16u * 17u);
    size_t warnings = 0;
    for (size_t at = 0;
         (at = out.find("Warning : I2C[0x77] is turnned off", at)) != std::string::npos; ++at) {
        ++warnings;
    }
    EXPECT_EQ(warnings, 1u);
}

} // namespace
