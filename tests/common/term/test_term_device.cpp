// Terminals on a real pseudo-terminal pair standing in for a serial line, and
// the dumps of their settings (the flag values are the target's own).
#include <gtest/gtest.h>

#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include "COMMON.h"
#include "test_support.h"

namespace {

using fake::logOf;

class TermDevice : public testing::Test {
protected:
    void SetUp() override
    {
        master = posix_openpt(O_RDWR | O_NOCTTY);
        ASSERT_EQ(grantpt(master) | unlockpt(master), 0);
        slave = ptsname(master);
        info.fd = -1;
        info.direction = 2;
        info.speed = B9600;
        fake::clock::enable();
    }
    void TearDown() override { close(master); }

    struct termios settingsNow()
    {
        struct termios t {};
        const int fd = open(slave.c_str(), O_RDONLY | O_NOCTTY);
        tcgetattr(fd, &t);
        close(fd);
        return t;
    }

    int master = -1;
    std::string slave;
    COM_TERM_DEV_INFO info{};
};

TEST_F(TermDevice, OpenAppliesTheLineSettingsAndCloseGivesThemBack)
{
    const struct termios before = settingsNow();
    ASSERT_EQ(COM_OpenTermDevice(slave.c_str(), &info), 0);
    EXPECT_EQ(fake::clock::sleptNs(), 500'000'000); // the line settles
    EXPECT_EQ(info.name, slave);
    const struct termios t = settingsNow();
    EXPECT_EQ(t.c_iflag, static_cast<tcflag_t>(ICRNL | IXON));
    EXPECT_EQ(t.c_oflag, static_cast<tcflag_t>(OPOST | ONLCR));
    EXPECT_EQ(t.c_cflag & ~static_cast<tcflag_t>(CBAUD),
              static_cast<tcflag_t>(CS8 | CREAD | HUPCL | CLOCAL));
    EXPECT_EQ(t.c_lflag,
              static_cast<tcflag_t>(ISIG | ICANON | ECHO | ECHOE | ECHOK | ECHOCTL | IEXTEN));
    EXPECT_EQ(cfgetospeed(&t), static_cast<speed_t>(B9600));
    const int cc[][2] = {{VINTR, 3},  {VQUIT, 28},    {VERASE, 127},  {VKILL, 21},   {VEOF, 4},
                         {VMIN, 1},   {VTIME, 0},     {VEOL, 0},      {VSTART, 17},  {VSTOP, 19},
                         {VSUSP, 26}, {VREPRINT, 18}, {VDISCARD, 15}, {VWERASE, 23}, {VLNEXT, 22}};
    for (const auto &[index, value] : cc) {
        EXPECT_EQ(t.c_cc[index], value) << index;
    }
    EXPECT_NE(fcntl(info.fd, F_GETFL) & O_NONBLOCK, 0);

    // Input still pending at close is dropped: a line waits, seen by poll().
    const int held = open(slave.c_str(), O_RDONLY | O_NOCTTY | O_NONBLOCK);
    struct pollfd waiting = {held, POLLIN, 0};
    ASSERT_EQ(write(master, "junk\n", 5), 5);
    ASSERT_EQ(poll(&waiting, 1, -1), 1);
    EXPECT_EQ(COM_CloseTermDevice(&info), 0);
    char byte;
    EXPECT_EQ(read(held, &byte, 1), -1);
    close(held);
    EXPECT_EQ(info.fd, -1);
    EXPECT_EQ(info.name[0], '\0');
    const struct termios after = settingsNow();
    EXPECT_EQ(after.c_lflag, before.c_lflag);
    EXPECT_EQ(after.c_iflag, before.c_iflag);
    EXPECT_EQ(cfgetospeed(&after), cfgetospeed(&before));
    EXPECT_EQ(logOf([&] { EXPECT_EQ(COM_CloseTermDevice(&info), -1); }),
              "term_device.cpp,N:COM_CloseTermDevice(): no valid fd found\n");
}

TEST_F(TermDevice, BadDirectionOpensReadOnly)
{
    info.direction = 7;
    EXPECT_EQ(
        logOf([&] { EXPECT_EQ(COM_OpenTermDevice(slave.c_str(), &info), 0); }),
        "term_device.cpp,N:COM_OpenTermDevice(): pDevInfo->direction = 7, use default O_RDONLY\n");
    EXPECT_EQ(info.direction, 0);
    EXPECT_EQ(fcntl(info.fd, F_GETFL) & O_ACCMODE, O_RDONLY);
    COM_CloseTermDevice(&info);
}

TEST_F(TermDevice, FailuresToOpenAndToSet)
{
    strcpy(info.name, "kept");
    EXPECT_EQ(logOf([&] { EXPECT_EQ(COM_OpenTermDevice("/no/such/tty", &info), -2); }),
              "term_device.cpp,N:COM_OpenTermDevice(): open(/no/such/tty) failed : No such "
              "file or directory\n");
    EXPECT_STREQ(info.name, "kept");
    EXPECT_LT(info.fd, 0);
    // Not a terminal: the settings can't be read or set, and the device stays open.
    const std::string log = logOf([&] { EXPECT_EQ(COM_OpenTermDevice("/dev/null", &info), -1); });
    EXPECT_NE(log.find("COM_OpenTermDevice(): tcgetattr(/dev/null) error : "), std::string::npos);
    EXPECT_NE(log.find("COM_OpenTermDevice(): tcsetattr(/dev/null) error : "), std::string::npos);
    EXPECT_GE(info.fd, 0);
    EXPECT_NE(logOf([&] {
                  EXPECT_EQ(COM_CloseTermDevice(&info), 0);
              }).find("COM_CloseTermDevice(): tcsetattr(/dev/null) error : "),
              std::string::npos);
}

TEST(TermDump, FlagsWhollyContainedAndControlCharactersByIndex)
{
    using fake::captureStdout;
    EXPECT_EQ(captureStdout([] { COM_ShowTermFlags(" c_cflag", 0, gTermCFlagTable); }),
              " c_cflag = [0x0] : [B0]\n");
    // B9600 shares its bits with B50, B75 ... : every subset code is listed.
    std::string out = captureStdout([] { COM_ShowTermFlags("x", B9600 | CS8, gTermCFlagTable); });
    EXPECT_NE(out.find(" [B9600]"), std::string::npos);
    EXPECT_NE(out.find(" [CSIZE]"), std::string::npos) << out;
    char line[64];
    snprintf(line, sizeof line, "i = [0x%X] : [ICRNL] [IXON]\n", ICRNL | IXON);
    EXPECT_EQ(captureStdout([] { COM_ShowTermFlags("i", ICRNL | IXON, gTermIFlagTable); }), line);

    struct termios t {};
    t.c_cc[VMIN] = 1;
    out = logOf([&] { COM_ShowTermios("tty", &t); });
    EXPECT_EQ(out.find("tty\n======\n"), out.find("tty"));
    snprintf(line, sizeof line, " [%02d/32] c_cc[VMIN] = 1\n", VMIN);
    EXPECT_NE(out.find(line), std::string::npos) << out;
    EXPECT_NE(out.find(" [31/32] c_cc[unknown] = 0\n======\n"), std::string::npos) << out;
}

} // namespace
