#include "COMMON.h"
#include "com_log.h"
#include "fd_io.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {
constexpr const char *kMemInfo = "/proc/meminfo";
constexpr int kLineSize = 80;
} // namespace

int COM_GetFreeMemAndSwap(int *pFreeMem, int *pFreeSwap)
{
    static constexpr const char *kFunc = "COM_GetFreeMemAndSwap";
    fdio::UniqueFile file = fdio::openFile(kMemInfo, "r");
    if (!file) {
        COM_LOG_FAILED_CALL(kFunc, "fopen(%s) error : %s\n", kMemInfo);
        return -1;
    }
    int result = -1;
    bool changed = false;
    char line[kLineSize];
    while (fgets(line, sizeof line, file.get()) != nullptr) {
        const std::string_view text(line);
        int *target;
        if (text.starts_with("Mem:")) {
            target = pFreeMem;
        } else if (text.starts_with("Swap:")) {
            target = pFreeSwap;
        } else {
            continue;
        }
        // "Mem:  total used free ...": the fourth token is the free count.
        char *save = nullptr;
        const char *token = strtok_r(line, " \t\n", &save);
        for (int i = 1; i < 4 && token != nullptr; ++i) {
            token = strtok_r(nullptr, " \t\n", &save);
        }
        if (token == nullptr) {
            result = -1;
            continue;
        }
        const int value = atoi(token);
        if (target != nullptr) {
            changed = changed || *target != value;
            *target = value;
        }
        result = 0;
    }
    file.reset();
    if (changed) {
        COM_LOG(kFunc, "Free - (Mem, Swap) = (%d, %d)\n", pFreeMem != nullptr ? *pFreeMem : -1,
                pFreeSwap != nullptr ? *pFreeSwap : -1);
    }
    return result;
}
