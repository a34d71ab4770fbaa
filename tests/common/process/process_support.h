// Helpers of the process tests: waits on real events, and the recorder of the
// lines a command reader hands over.
#ifndef DVR_PROCESS_SUPPORT_H
#define DVR_PROCESS_SUPPORT_H

#include <chrono>
#include <mutex>
#include <sched.h>
#include <string>

#include "COMMON.h"
#include "case_runner.h"

namespace ptest {

// Spins until a state that a real event brings holds; false, instead of a
// hang, if it doesn't come within seconds.
template <typename Cond> bool eventually(Cond cond)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!cond() && std::chrono::steady_clock::now() < deadline) {
        sched_yield();
    }
    return cond();
}

inline std::mutex linesMutex;
inline std::string lines; // each line quoted, then "<end>" for the closing call

// A line callback: keeps the line when the caller's value is 0xC0FFEE.
inline void recordLine(char *line, uint32_t value)
{
    const std::lock_guard lock(linesMutex);
    lines += (value != 0xC0FFEE ? "bad value " : "") + (line != nullptr ? cases::q(line) : "<end>");
}

inline std::string takeLines()
{
    const std::lock_guard lock(linesMutex);
    std::string taken;
    taken.swap(lines);
    return taken;
}

} // namespace ptest

#endif
