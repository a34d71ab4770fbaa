// Operations of the I2C case files (tests/cases/i2c): the tool run with an
// argument line, and the bus calls, against the fake board; the board's state.
#include <cerrno>
#include <fcntl.h>
#include <numeric>

#include "DVR_I2C.h"
#include "case_runner.h"
#include "fake_board.h"

namespace {
using cases::Args;
using cases::rc;
using fake::Board;
using fake::wordAt;

std::shared_ptr<Board> board;

// Bytes as runs of equal values: "FF*1024 55*1976".
std::string runs(const std::vector<uint8_t> &bytes)
{
    std::string out;
    for (size_t i = 0, n; i < bytes.size(); i += n) {
        for (n = 1; i + n < bytes.size() && bytes[i + n] == bytes[i];) {
            ++n;
        }
        char run[16];
        snprintf(run, sizeof run, " %02X*%zu", bytes[i], n);
        out += n == 1 ? std::string(run).substr(0, 3) : run;
    }
    return out;
}

// The records the board received since the last look, one a line, repeats
// counted: kind, the first four bytes (id, channel, two zero bytes), register,
// register width, then the length, or for a page the whole channel.
std::string seen()
{
    std::string out, last;
    int times = 0;
    const size_t lengthAt = sizeof(void *) == 4 ? 16 : 24; // behind the data pointer
    for (const auto &r : board->requests()) {
        const auto &b = r.bytes;
        const bool page = r.code == ZL740_IOCTL_I2C_WRITE_PAGE;
        const size_t size = page ? 48 : lengthAt + sizeof(void *);
        char one[80];
        snprintf(one, sizeof one, "%c %02X%02X%02X%02X 0x%X %u %u%s",
                 page                             ? 'P'
                 : r.code == ZL740_IOCTL_I2C_READ ? 'R'
                                                  : 'W',
                 b[0], b[1], b[2], b[3], wordAt(b, 4), wordAt(b, 8),
                 wordAt(b, page ? 12 : lengthAt), b.size() == size ? "" : " size!");
        if (one != last && times > 0) {
            out += last + (times > 1 ? " *" + rc(times) : "") + "\n";
            times = 0;
        }
        last = one;
        ++times;
    }
    board->clearRequests();
    return times == 0 ? "none" : out + last + (times > 1 ? " *" + rc(times) : "");
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

// A fresh board at the driver's node, no failures counted; with "open", a
// byte device 0x50 of 4 KiB, and the driver opened.
std::string newBoard(Args &a)
{
    COM_SafeClose(&gI2CDriverFd);
    board = std::make_shared<Board>();
    fake::addDevice(ZL740_DRIVER_PATH, board);
    std::fill(std::begin(gI2CFailCount), std::end(gI2CFailCount), 0);
    if (a.str(0) == "open") {
        board->addChip(0x50, 1, 1, 0x1000);
        gI2CDriverFd = open(ZL740_DRIVER_PATH, O_RDWR);
    }
    return "";
}

const cases::Register ops({
    {"board", newBoard},
    {"unplug",
     [](Args &) {
         fake::removeDevice(ZL740_DRIVER_PATH);
         board.reset();
         return std::string();
     }},
    {"close", cases::step([](Args &) { COM_SafeClose(&gI2CDriverFd); })},
    {"poke", cases::step([](Args &a) { board->memory(a.n(0))[a.n(1)] = a.n(2); })},
    {"peek", [](Args &a) { return rc(board->memory(a.n(0))[a.n(1)]); }},
    {"openErrno", cases::step([](Args &a) { board->openErrno = a.n(0); })},
    // fail R|W|P count EIO|EFAULT [after]
    {"fail",
     [](Args &a) {
         const auto kind = a.str(0) == "R"   ? Board::kRead
                           : a.str(0) == "W" ? Board::kWrite
                                             : Board::kWritePage;
         board->failNext(kind, static_cast<int>(a.n(1)), a.str(2) == "EFAULT" ? EFAULT : EIO,
                         static_cast<int>(a.n(3)));
         return std::string();
     }},
    // load id value, or "pattern": byte i holds i * 7 + 3.
    {"load",
     [](Args &a) {
         auto &mem = board->memory(a.n(0));
         for (size_t i = 0; i < mem.size(); ++i) {
             mem[i] = static_cast<uint8_t>(a.str(1) == "pattern" ? i * 7 + 3 : a.n(1));
         }
         return std::string();
     }},
    // mem id from length [first]: the bytes as runs, "2A" where they hold the
    // counting bytes from first, or without first, the pattern.
    {"mem",
     [](Args &a) {
         const auto &mem = board->memory(a.n(0));
         std::vector<uint8_t> part(mem.begin() + a.n(1), mem.begin() + a.n(1) + a.n(2));
         for (size_t i = 0; i < part.size(); ++i) {
             const long k = a.size() > 3 ? a.n(3) + i : (a.n(1) + i) * 7 + 3;
             part[i] = part[i] == static_cast<uint8_t>(k) ? 0x2A : part[i];
         }
         return runs(part);
     }},
    {"seen", [](Args &) { return seen(); }},
    {"channelA0", cases::step([](Args &a) { gI2CChannelA0 = static_cast<int>(a.n(0)); })},
    // failCount id [value]: the count, after setting it.
    {"failCount",
     [](Args &a) {
         gI2CFailCount[a.n(0)] = a.size() > 1 ? static_cast<int>(a.n(1)) : gI2CFailCount[a.n(0)];
         return rc(gI2CFailCount[a.n(0)]);
     }},
    // send id reg length [first]: the counting bytes from first.
    {"send",
     [](Args &a) {
         std::vector<uint8_t> data(a.n(2) > 0 ? a.n(2) : 1);
         std::iota(data.begin(), data.end(), static_cast<uint8_t>(a.n(3)));
         return rc(DVR_SendI2CBlock(a.n(0), a.n(1), a.n(2), data.data()));
     }},
    // read id reg length: the result and the buffer, filled with 55 before.
    {"read",
     [](Args &a) {
         std::vector<uint8_t> buf(a.n(2) > 0 ? a.n(2) : 1, 0x55);
         const int result = DVR_ReadI2CBlock(a.n(0), a.n(1), a.n(2), buf.data());
         return rc(result) + runs(buf);
     }},
    // sendData id reg value [times] and readData id reg [times]: the results.
    {"sendData",
     [](Args &a) {
         a.sub(strerror(ENOSYS), strerror(EBADF)); // qemu's answer for a closed descriptor
         std::string out;
         for (long i = 0; i < std::max(a.n(3), 1L); ++i) {
             out += (i > 0 ? " " : "") + rc(DVR_SendI2CData(a.n(0), a.n(1), a.n(2)));
         }
         return out;
     }},
    {"readData",
     [](Args &a) {
         std::string out;
         uint8_t byte = 0;
         for (long i = 0; i < std::max(a.n(2), 1L); ++i) {
             out += rc(DVR_ReadI2CData(a.n(0), a.n(1), &byte)) + " ";
         }
         return out + "byte" + runs({byte});
     }},
    {"i2c", runTool},
});

} // namespace
