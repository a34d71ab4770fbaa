#include "COMMON.h"
#include "fd_io.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/time.h>

namespace {
constexpr const char *kTimeFormat = "%Y/%m/%d %H:%M:%S";
}

struct tm *COM_GmTime(struct tm *out, time_t seconds)
{
    return gmtime_r(&seconds, out);
}

int COM_FormatTime(char *out, time_t seconds)
{
    struct tm parts {};
    if (COM_GmTime(&parts, seconds) == nullptr) {
        return -1;
    }
    strftime(out, COM_TIME_TEXT_SIZE, kTimeFormat, &parts);
    return 0;
}

int COM_ShowTime(const char *file, int line, time_t seconds)
{
    char text[COM_TIME_TEXT_SIZE] = {};
    if (COM_FormatTime(text, seconds) != 0) {
        return -1;
    }
    if (file != nullptr) {
        printf("%s,%d: ", file, line);
    }
    printf("[%ld] -> [%s]\n", static_cast<long>(seconds), text);
    return 0;
}

int COM_ShowCurrentTime(const char *file, int line)
{
    struct timeval now {};
    if (gettimeofday(&now, nullptr) != 0) {
        COM_LOG_FAILED_CALL_AT(file, line, nullptr, "gettimeofday() fail : %s\n");
        return -1;
    }
    char text[COM_TIME_TEXT_SIZE] = {};
    if (COM_FormatTime(text, now.tv_sec) != 0) {
        COM_LOG_FAILED_CALL_AT(file, line, nullptr, "gmtime_r() fail : %s\n");
        return -1;
    }
    if (file != nullptr) {
        printf("%s,%d: [%s.%06ld] ", file, line, text, static_cast<long>(now.tv_usec));
    } else {
        printf("[%s.%06ld] ", text, static_cast<long>(now.tv_usec));
    }
    return 0;
}
