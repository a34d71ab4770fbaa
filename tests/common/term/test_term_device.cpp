// Terminals on a real pseudo-terminal pair standing in for a serial line.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include "COMMON.h"
#include "test_support.h"

namespace {

class TermDevice : public testing::Test {
protected:
    void SetUp() override
    {
        master = posix_openpt(O_RDWR | O_NOCTTY);
        ASSERT_GE(master, 0);
        ASSERT_EQ(grantpt(master), 0);
        ASSERT_EQ(unlockpt(master), 0);
        slave = ptsname(master);
        info.fd = -1;
        info.direction = 2;
        info.speed = B9600;
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
    fake::clock::enable();
    const struct termios before = settingsNow();
    ASSERT_EQ(COM_OpenTermDevice(slave.c_str(), &info), 0);
    EXPECT_EQ(fake::clock::sleptNs(), 500'000'000);
    EXPECT_EQ(info.name, slave);

    const struct termios t = settingsNow();
    EXPECT_EQ(t.c_iflag, static_cast<tcflag_t>(ICRNL | IXON));
    EXPECT_EQ(t.c_oflag, static_cast<tcflag_t>(OPOST | ONLCR));
    EXPECT_EQ(t.c_cflag & ~static_cast<tcflag_t>(CBAUD),
              static_cast<tcflag_t>(CS8 | CREAD | HUPCL | CLOCAL));
    EXPECT_EQ(t.c_lflag,
              static_cast<tcflag_t>(ISIG | ICANON | ECHO | ECHOE | ECHOK | ECHOCTL | IEXTEN));
    EXPECT_EQ(cfgetospeed(&t), static_cast<speed_t>(B9600));
    const struct {
        int index;
        int value;
    } cc[] = {{VINTR, 3},     {VQUIT, 28},    {VERASE, 127}, {VKILL, 21}, {VEOF, 4},
              {VMIN, 1},      {VTIME, 0},     {VSTART, 17},  {VSTOP, 19}, {VSUSP, 26},
              {VREPRINT, 18}, {VDISCARD, 15}, {VWERASE, 23}, {VLNEXT, 22}};
    for (const auto &c : cc) {
        EXPECT_EQ(t.c_cc[c.index], c.value) << c.index;
    }
    EXPECT_NE(fcntl(info.fd, F_GETFL) & O_NONBLOCK, 0);

    EXPECT_EQ(COM_CloseTermDevice(&info), 0);
    EXPECT_EQ(info.fd, -1);
    EXPECT_EQ(info.name[0], '\0');
    const struct termios after = settingsNow();
    EXPECT_EQ(after.c_lflag, before.c_lflag);
    EXPECT_EQ(after.c_iflag, before.c_iflag);
    EXPECT_EQ(cfgetospeed(&after), cfgetospeed(&before));

    const std::string log = fake::logOf(([&] { EXPECT_EQ(COM_CloseTermDevice(&info), -1); }));
    EXPECT_EQ(log, "term_device.cpp,N:COM_CloseTermDevice(): no valid fd found\n");
}

TEST_F(TermDevice, BadDirectionOpensReadOnly)
{
    fake::clock::enable();
    info.direction = 7;
    const std::string log =
        fake::logOf(([&] { EXPECT_EQ(COM_OpenTermDevice(slave.c_str(), &info), 0); }));
    EXPECT_EQ(
        log,
        "term_device.cpp,N:COM_OpenTermDevice(): pDevInfo->direction = 7, use default O_RDONLY\n");
    EXPECT_EQ(info.direction, 0);
    EXPECT_EQ(fcntl(info.fd, F_GETFL) & O_ACCMODE, O_RDONLY);
    COM_CloseTermDevice(&info);
}

TEST_F(TermDevice, FailuresToOpenAndToSet)
{
    fake::clock::enable();
    strcpy(info.name, "kept");
    std::string log =
        fake::logOf(([&] { EXPECT_EQ(COM_OpenTermDevice("/no/such/tty", &info), -2); }));
    EXPECT_EQ(log, "term_device.cpp,N:COM_OpenTermDevice(): open(/no/such/tty) failed : No such "
                   "file or directory\n");
    EXPECT_STREQ(info.name, "kept");
    EXPECT_LT(info.fd, 0);

    // Not a terminal: the settings can't be read or set, and the device stays open.
    log = fake::logOf(([&] { EXPECT_EQ(COM_OpenTermDevice("/dev/null", &info), -1); }));
    EXPECT_NE(log.find("COM_OpenTermDevice(): tcgetattr(/dev/null) error : "), std::string::npos)
        << log;
    EXPECT_NE(log.find("COM_OpenTermDevice(): tcsetattr(/dev/null) error : "), std::string::npos)
        << log;
    EXPECT_GE(info.fd, 0);
    log = fake::logOf(([&] { EXPECT_EQ(COM_CloseTermDevice(&info), 0); }));
    EXPECT_NE(log.find("COM_CloseTermDevice(): tcsetattr(/dev/null) error : "), std::string::npos)
        << log;
}

// Once, on the real clock: the line really settles for half a second.
TEST_F(TermDevice, OpenTakesHalfASecond)
{
    struct timespec start {
    }, end{};
    clock_gettime(CLOCK_MONOTONIC, &start);
    ASSERT_EQ(COM_OpenTermDevice(slave.c_str(), &info), 0);
    clock_gettime(CLOCK_MONOTONIC, &end);
    COM_CloseTermDevice(&info);
    EXPECT_GE((end.tv_sec - start.tv_sec) * 1000000000LL + (end.tv_nsec - start.tv_nsec),
              500'000'000LL);
}

TEST(Sleep, TracesWithAFileName)
{
    fake::clock::enable();
    EXPECT_EQ(fake::captureStdout([] { EXPECT_EQ(COM_Sleep(1, 5, "s.c", 4), 0); }),
              "[s.c, 4] : B4 1. 5 sec Sleep\n[s.c, 4] : After Sleep\n");
    EXPECT_EQ(fake::captureStdout([] { COM_Sleep(0, 7, nullptr, 4); }), "");
    EXPECT_EQ(fake::clock::sleptNs(), 1'000'000'012);
}

} // namespace
