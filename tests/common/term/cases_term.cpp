// Operations of the term case files (tests/cases/term): logical serial ports.
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "case_runner.h"

namespace {
using cases::Args;
using cases::q;

const cases::Register ops({
    {"SerialPort",
     [](Args &a) {
         char name[COM_SERIAL_PATH_SIZE] = "untouched";
         const int rc = COM_GetSerialPort(a.n(0), name);
         return std::to_string(rc) + " " + q(name);
     }},
    // What a path is: a character node with its numbers, a file, or missing.
    {"node",
     [](Args &a) {
         struct stat st {};
         if (lstat(a.s(0), &st) != 0) {
             return std::string("missing");
         }
         return S_ISCHR(st.st_mode) ? "char " + cases::nums({major(st.st_rdev), minor(st.st_rdev)})
                                    : std::string("file");
     }},
});

} // namespace
