#include "COMMON.h"
#include "com_log.h"
#include "fd_io.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

namespace {
// The line settles before its settings change.
constexpr long kSettleNs = 500000000;

struct ControlChar {
    int index;
    cc_t value;
};

// A sane canonical terminal with echo: ^C, ^\, DEL, ^U, ^D ...
constexpr ControlChar kControlChars[] = {
    {VINTR, 3}, {VQUIT, 28},    {VERASE, 127},  {VKILL, 21},   {VEOF, 4},   {VTIME, 0},
    {VMIN, 1},  {VEOL2, 0},     {VSWTC, 0},     {VSTART, 17},  {VSTOP, 19}, {VSUSP, 26},
    {VEOL, 0},  {VREPRINT, 18}, {VDISCARD, 15}, {VWERASE, 23}, {VLNEXT, 22}};

void applyLineSettings(struct termios &t, int speed)
{
    t.c_iflag = ICRNL | IXON;
    t.c_oflag = OPOST | ONLCR;
    t.c_cflag = CS8 | CREAD | HUPCL | CLOCAL;
    t.c_lflag = ISIG | ICANON | ECHO | ECHOE | ECHOK | ECHOCTL | IEXTEN;
    for (const ControlChar &c : kControlChars) {
        t.c_cc[c.index] = c.value;
    }
    cfsetospeed(&t, static_cast<speed_t>(speed));
}
} // namespace

int COM_Sleep(int seconds, long nanoseconds, const char *file, int line)
{
    if (file != nullptr) {
        printf("[%s, %d] : B4 %d. %ld sec Sleep\n", file, line, seconds, nanoseconds);
    }
    const struct timespec span = {seconds, nanoseconds};
    const int rc = nanosleep(&span, nullptr);
    if (file != nullptr) {
        printf("[%s, %d] : After Sleep\n", file, line);
    }
    return rc;
}

int COM_OpenTermDevice(const char *path, COM_TERM_DEV_INFO *pDevInfo)
{
    static constexpr const char *kFunc = "COM_OpenTermDevice";
    if (pDevInfo->direction < 0 || pDevInfo->direction > 2) {
        COM_LOG(kFunc, "pDevInfo->direction = %d, use default O_RDONLY\n", pDevInfo->direction);
        pDevInfo->direction = 0;
    }
    pDevInfo->fd = open(path, pDevInfo->direction | O_NOCTTY | O_NONBLOCK);
    if (pDevInfo->fd < 0) {
        COM_LOG_FAILED_CALL(kFunc, "open(%s) failed : %s\n", path);
        return -2;
    }
    snprintf(pDevInfo->name, sizeof pDevInfo->name, "%s", path);

    int result = 0;
    if (tcgetattr(pDevInfo->fd, &pDevInfo->oldTermios) != 0) {
        COM_LOG_FAILED_CALL(kFunc, "tcgetattr(%s) error : %s\n", path);
        result = -1;
    }
    COM_Sleep(0, kSettleNs, nullptr, 0);

    applyLineSettings(pDevInfo->newTermios, pDevInfo->speed);
    tcflush(pDevInfo->fd, TCIFLUSH);
    if (tcsetattr(pDevInfo->fd, TCSANOW, &pDevInfo->newTermios) != 0) {
        COM_LOG_FAILED_CALL(kFunc, "tcsetattr(%s) error : %s\n", path);
        result = -1;
    }
    return result;
}

int COM_CloseTermDevice(COM_TERM_DEV_INFO *pDevInfo)
{
    static constexpr const char *kFunc = "COM_CloseTermDevice";
    if (pDevInfo->fd < 0) {
        COM_LOG(kFunc, "no valid fd found\n");
        return -1;
    }
    tcflush(pDevInfo->fd, TCIFLUSH);
    if (tcsetattr(pDevInfo->fd, TCSANOW, &pDevInfo->oldTermios) != 0) {
        COM_LOG_FAILED_CALL(kFunc, "tcsetattr(%s) error : %s\n", pDevInfo->name);
    }
    memset(pDevInfo->name, 0, sizeof pDevInfo->name);
    const int rc = close(pDevInfo->fd);
    if (rc != 0) {
        COM_LOG_FAILED_CALL(kFunc, "close(%d) failed : %s\n", pDevInfo->fd);
    } else {
        pDevInfo->fd = -1;
    }
    return rc;
}
