// Operations of the kernel case files (tests/cases/kernel): system
// information read from recorded kernel texts, and the MIME types.
#include "case_runner.h"

namespace {
using cases::Args;
using cases::nums;
using cases::q;

const cases::Register ops({
    // The count found and the ids in a buffer of four (capacity as asked).
    {"PciDeviceId",
     [](Args &a) {
         uint32_t ids[4] = {};
         std::string out = std::to_string(COM_GetPciDeviceId(a.s(0), ids, a.n(1)));
         for (const uint32_t id : ids) {
             out += " " + std::to_string(id);
         }
         return out;
     }},
    {"PciDevice", [](Args &a) { return std::to_string(COM_GetPciDevice(a.s(0))); }},
    // The result and both counts (-7 untouched); "NULL" passes no outputs.
    {"FreeMemAndSwap",
     [](Args &a) {
         static int mem = -7, swap = -7;
         const bool none = a.str(0) == "NULL";
         const int rc = COM_GetFreeMemAndSwap(none ? nullptr : &mem, none ? nullptr : &swap);
         return nums({rc, mem, swap});
     }},
    {"KernelVersion",
     [](Args &a) {
         char version[COM_VERSION_TEXT_SIZE] = "~", rest[COM_VERSION_TEXT_SIZE] = "~";
         const bool none = a.str(0) == "NULL";
         COM_GetKernelVersion(none ? nullptr : version, none ? nullptr : rest);
         return q(version) + " " + q(rest);
     }},
    {"Revision",
     [](Args &) {
         char revision[COM_VERSION_TEXT_SIZE] = "~";
         COM_GetRevision(revision);
         return q(revision);
     }},
    // The type of each name given.
    {"MimeType",
     [](Args &a) {
         std::vector<std::string> types;
         for (size_t i = 0; i < a.size(); ++i) {
             types.push_back(q(COM_GetMimeType(a.s(i))));
         }
         return cases::join(types);
     }},
});

} // namespace
