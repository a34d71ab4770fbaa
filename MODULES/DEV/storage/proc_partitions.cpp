#include "proc_partitions.h"

#include "DEV.h"
#include "fd_io.h"

#include <cctype>
#include <cstdio>
#include <cstring>

namespace {
constexpr const char *kProcPartitions = "/proc/partitions";
constexpr size_t kLineSize = 256;
} // namespace

bool dev::partitionLineNames(const char *line, const char *name)
{
    const char *hit = COM_StrCaseStr(line, name);
    if (hit == nullptr) {
        return false;
    }
    const unsigned char after = static_cast<unsigned char>(hit[strlen(name)]);
    return after == '\0' || iscntrl(after);
}

int Dev_IsInProcPartitions(const char *pName)
{
    if (pName == nullptr) {
        return -1;
    }
    const char *slash = strrchr(pName, '/');
    const char *name = slash != nullptr ? slash + 1 : pName;
    // An empty name would match the blank line under the header.
    if (*name == '\0') {
        return -1;
    }
    const fdio::UniqueFile file = fdio::openFile(kProcPartitions, "r");
    if (!file) {
        return -1;
    }
    char line[kLineSize];
    while (fgets(line, sizeof line, file.get()) != nullptr) {
        if (dev::partitionLineNames(line, name)) {
            return 0;
        }
    }
    return -1;
}
