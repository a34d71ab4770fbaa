// Operations of the I2C tool case files (tests/cases/i2c): the tool run with
// an argument line against the fake board, and the board's state.
#include <cerrno>

#include "DVR_I2C.h"
#include "case_runner.h"
#include "fake_board.h"

namespace {
using cases::Args;
using fake::Board;

std::shared_ptr<Board> board;

std::string rc(int value)
{
    return std::to_string(value);
}

// The tool's result, and "driver left open" when it kept the descriptor.
std::string runTool(Args &a)
{
    std::vector<std::string> args = {"i2c"};
    for (size_t i = 0; i < a.size(); ++i) {
        args.push_back(a.str(i));
    }
    std::vector<char *> argv;
    for (auto &arg : args) {
        argv.push_back(arg.data());
    }
    argv.push_back(nullptr);
    const int result = DVR_I2CToolMain(static_cast<int>(args.size()), argv.data());
    return rc(result) + (gI2CDriverFd == -1 ? "" : " driver left open");
}

const cases::Register ops({
    // A fresh board at the driver's node, no failures counted.
    {"board",
     [](Args &) {
         board = std::make_shared<Board>();
         fake::addDevice(ZL740_DRIVER_PATH, board);
         std::fill(std::begin(gI2CFailCount), std::end(gI2CFailCount), 0);
         return std::string();
     }},
    {"unplug",
     [](Args &) {
         fake::removeDevice(ZL740_DRIVER_PATH);
         board.reset();
         return std::string();
     }},
    {"poke",
     [](Args &a) {
         board->memory(a.n(0))[a.n(1)] = a.n(2);
         return std::string();
     }},
    {"peek", [](Args &a) { return rc(board->memory(a.n(0))[a.n(1)]); }},
    {"openErrno",
     [](Args &a) {
         board->openErrno = a.n(0);
         return std::string();
     }},
    {"failWrites",
     [](Args &a) {
         board->failNext(Board::kWrite, a.n(0), EIO);
         return std::string();
     }},
    // Requests the board saw since it was made, and the length field of the last.
    {"requests",
     [](Args &) {
         const auto reqs = board->requests();
         const size_t at = sizeof(void *) == 4 ? 16 : 24;
         return rc(reqs.size()) +
                (reqs.empty() ? "" : " last length " + rc(fake::wordAt(reqs.back().bytes, at)));
     }},
    {"i2c", runTool},
});

} // namespace
