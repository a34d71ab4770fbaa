// Operations of the base case files (tests/cases/base): the log line, the
// dumps, the time prints and operations, and the resource owners.
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "case_runner.h"
#include "fd_io.h"

namespace {
using cases::Args;
using cases::nums;
using cases::q;

// What a call printed, line numbers kept, after its result.
template <typename Fn> std::string printed(Fn &&fn)
{
    int rc = 0;
    const std::string out = fake::captureStdout([&] { rc = fn(); });
    return std::to_string(rc) + " " + q(out);
}

// Dumps the bytes given (the data's address shown as "data").
cases::Op dump(void (*fn)(const char *, const void *, int))
{
    return [fn](Args &a) {
        const char *data = a.s(1);
        a.alias(data, "data");
        fn(a.s(0), data, a.n(2));
        return std::string();
    };
}

int savedFd = -1;

const cases::Register ops({
    {"Printf",
     [](Args &a) {
         return printed([&] { return COM_Printf(a.s(0), a.n(1), a.s(2), "%s", a.s(3)); });
     }},
    {"DumpHex", dump(COM_DumpHex)},
    {"DumpHexChars", dump(COM_DumpHexChars)},
    {"FormatTime",
     [](Args &a) {
         char text[COM_TIME_TEXT_SIZE] = "~";
         const int rc = COM_FormatTime(text, a.n(0));
         return std::to_string(rc) + " " + q(text);
     }},
    {"ShowTime", [](Args &a) { return printed([&] { return COM_ShowTime(a.s(0), 3, a.n(1)); }); }},
    {"ShowCurrentTime",
     [](Args &a) { return printed([&] { return COM_ShowCurrentTime(a.s(0), 9); }); }},
    {"GmTime",
     [](Args &a) {
         struct tm t {};
         const bool same = COM_GmTime(&t, a.n(0)) == &t;
         return nums({same, t.tm_year, t.tm_mon, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec});
     }},
    {"clock",
     [](Args &a) {
         fake::clock::enable(a.n(0));
         return std::string();
     }},
    {"slept", [](Args &) { return std::to_string(fake::clock::sleptNs()); }},
    {"GetTimeMs", [](Args &) { return std::to_string(COM_GetTimeMs()); }},
    {"TimevalSubtract",
     [](Args &a) {
         timeval x = {a.n(0), a.n(1)}, y = {a.n(2), a.n(3)}, out{};
         const int rc = COM_TimevalSubtract(&out, &x, &y);
         return nums({rc, out.tv_sec, out.tv_usec});
     }},
    {"SleepExact",
     [](Args &a) {
         const struct timespec span = {a.n(0), a.n(1)};
         return std::to_string(COM_SleepExact(&span, a.n(2)));
     }},
    {"Sleep",
     [](Args &a) { return printed([&] { return COM_Sleep(a.n(0), a.n(1), a.s(2), 4); }); }},
    // "open" first opens /dev/null into the descriptor closed.
    {"SafeClose",
     [](Args &a) {
         if (a.str(0) == "open") {
             savedFd = open("/dev/null", O_RDONLY);
         }
         const int rc = COM_SafeClose(a.str(0) == "NULL" ? nullptr : &savedFd);
         return nums({rc, savedFd});
     }},
    // An owner of the path for the function "Maker", released or not; errno after.
    {"TempPath",
     [](Args &a) {
         {
             fdio::UniqueTempPath owner(a.s(0), "Maker");
             if (a.str(1) == "release") {
                 owner.release();
             }
             errno = 0;
         }
         return std::string(strerror(errno));
     }},
});

} // namespace
