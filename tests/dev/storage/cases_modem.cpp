// Operations of the modem case files: insmod, rmmod and mknod are the scripts
// of tests/data/modem/bin, which record their calls in $T/calls.
#include <cstdlib>
#include <filesystem>

#include "DEV.h"
#include "case_runner.h"

namespace {
using cases::Args;

const std::string kModem = DVR_TEST_DATA_DIR "/modem";

const cases::Register ops({
    // The USB list named; port list and nodes under $T; insmod and module there.
    {"modemroot",
     [](Args &a) {
         for (const std::string dir : {"/proc/tty/driver", "/dev"}) {
             std::filesystem::create_directories(a.tmp->path() + dir);
             fake::redirect(dir, a.tmp->path() + dir);
         }
         fake::redirect("/proc/bus/usb/devices", kModem + "/" + a.str(0));
         fake::redirect("/sbin/insmod", kModem + "/bin/insmod");
         fake::redirect("/lib/modules/gsm_modem.ko", a.tmp->write("gsm_modem.ko", ""));
         return std::string();
     }},
    // Result, path and microseconds slept, with the stand-ins on PATH behind a missing folder.
    {"Insert3gModemDriver",
     [](Args &a) {
         if (a.size() > 0) { // "NULL"
             return std::to_string(Dev_Insert3gModemDriver(nullptr));
         }
         const char *saved = getenv("PATH");
         const std::string path = saved != nullptr ? saved : "";
         setenv("PATH", ("/no/such:" + kModem + "/bin").c_str(), 1);
         setenv("DVR_MODEM_ROOT", a.tmp->path().c_str(), 1);
         fake::clock::enable();
         char dev[DEV_TTY_PATH_SIZE] = "untouched";
         const int result = Dev_Insert3gModemDriver(dev);
         const int64_t slept = fake::clock::sleptNs();
         fake::clock::disable();
         setenv("PATH", path.c_str(), 1);
         return std::to_string(result) + " " + cases::q(dev) + " " + std::to_string(slept / 1'000) +
                " us";
     }},
    {"calls",
     [](Args &a) {
         const std::string calls = fake::readFile(a.tmp->file("calls"));
         std::filesystem::remove(a.tmp->file("calls"));
         return cases::q(calls);
     }},
});

} // namespace
