// Operations of the process case files (tests/cases/process): commands,
// output readers, signals, watch passes and the thread registry, with real
// child processes and the real /proc. Process ids read as PID (this
// process) and CHILD (one the case started).
#include <csignal>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "case_runner.h"
#include "process_support.h"

namespace {
using cases::Args;
using cases::nums;
using cases::q;

std::vector<pid_t> children;
std::vector<COM_THREAD_RECORD> records; // one a child
int missing = 0;

// Every operation sees "SELF" as an argument as this process's command line,
// and the known process ids named in its log and result.
cases::Table named(cases::Table ops)
{
    for (auto &entry : ops) {
        entry.second = [fn = entry.second](Args &a) {
            const std::string pid = std::to_string(getpid());
            const std::string self = fake::readFile("/proc/self/cmdline").c_str();
            std::replace(a.v.begin(), a.v.end(), std::optional<std::string>("SELF"),
                         std::optional(self));
            a.sub(self, "SELF");
            for (const pid_t child : children) {
                a.sub("(" + std::to_string(child) + "[", "(CHILD[");
            }
            a.sub("pid:" + pid + "]", "pid:PID]");
            a.sub(" : " + pid + " - ", " : PID - ");
            a.sub("\"" + pid + "\"", "PID");
            return fn(a);
        };
    }
    return ops;
}

// A child: "sleep NAME" runs /bin/sleep under that name, "paused NAME" waits
// in pause() named so, "stopped" stops itself, "zombie" exits unreaped.
std::string startChild(Args &a)
{
    const std::string kind = a.str(0), name = a.str(1);
    pid_t pid = 0;
    if (kind == "sleep") {
        char *argv[] = {const_cast<char *>(name.c_str()), const_cast<char *>("1000"), nullptr};
        posix_spawn(&pid, "/bin/sleep", nullptr, nullptr, argv, environ);
    } else if ((pid = fork()) == 0) {
        if (kind == "stopped") {
            raise(SIGSTOP);
        }
        while (kind == "paused" && prctl(PR_SET_NAME, name.c_str(), 0, 0, 0) == 0) {
            pause();
        }
        _exit(0);
    }
    children.push_back(pid);
    COM_THREAD_RECORD r{};
    r.pid = pid;
    records.push_back(r);
    // Real events: the new command line, the stop, the exit, or the sleep.
    const std::string proc = "/proc/" + std::to_string(pid);
    const std::string awaited = kind == "sleep"     ? name
                                : kind == "paused"  ? ") S"
                                : kind == "stopped" ? ") T"
                                                    : ") Z";
    ptest::eventually([&] {
        return fake::readFile(proc + (kind == "sleep" ? "/cmdline" : "/stat")).find(awaited) !=
               std::string::npos;
    });
    return std::string();
}

// Ends every child; the signals that ended them, in order.
std::string reap(Args &)
{
    std::vector<std::string> ends;
    for (const pid_t child : children) {
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        ends.push_back(WIFSIGNALED(status) ? strsignal(WTERMSIG(status)) : "exited");
    }
    children.clear();
    std::sort(ends.begin(), ends.end());
    return cases::join(ends);
}

// The watch list of the arguments; a name starting with "+" has a callback.
std::string watch(Args &a)
{
    std::vector<COM_WATCH_ITEM> items;
    for (size_t i = 0; i < a.size(); ++i) {
        const bool call = a.s(i) != nullptr && a.s(i)[0] == '+';
        items.push_back(
            {a.s(i) == nullptr ? nullptr : a.s(i) + call, 9, call ? +[] { ++missing; } : nullptr});
    }
    COM_WATCH_LIST list = {static_cast<int>(items.size()), items.data()};
    missing = 0;
    std::string out = std::to_string(COM_WatchDog(a.size() != 0 ? &list : nullptr)) + " found";
    for (const COM_WATCH_ITEM &item : items) {
        out += " " + std::to_string(item.found);
    }
    return out + " missing " + std::to_string(missing);
}

const cases::Register ops(named({
    {"System", [](Args &a) { return std::to_string(COM_System(a.s(0), nullptr)) + " status"; }},
    {"CloseFdExceptSTD", cases::step([](Args &a) { COM_CloseFdExceptSTD(a.n(0)); })},
    // Each line handed over, and the end, then the result; "ignored": no
    // callback, with SIGCHLD ignored.
    {"PopenRead",
     [](Args &a) {
         const bool ignored = a.str(1) == "ignored";
         signal(SIGCHLD, ignored ? SIG_IGN : SIG_DFL);
         const int rc = COM_PopenRead(a.s(0), 0, 0xC0FFEE, ignored ? nullptr : ptest::recordLine);
         signal(SIGCHLD, SIG_DFL);
         return std::to_string(rc) + " " + ptest::takeLines();
     }},
    {"child", startChild},
    {"reap", reap},
    {"WatchDog", watch},
    {"KillProcess",
     [](Args &a) { return std::to_string(COM_KillProcess(a.s(0), a.n(1), a.n(2))); }},
    {"KillPid",
     [](Args &a) {
         fake::clock::enable();
         const int rc = COM_KillPid(a.str(0) == "CHILD" ? children.back() : a.n(0), a.n(1));
         return nums({rc, fake::clock::sleptNs()});
     }},
    {"SavePid",
     [](Args &a) {
         const int rc = COM_SavePid(a.s(0));
         // A device such as /dev/full is written to but not read back.
         const bool device = a.str(0).starts_with("/dev/");
         return std::to_string(rc) + " " + (device ? "" : q(fake::readFile(a.str(0))));
     }},
    // The registry: "threads" starts a new table, as in a new process.
    {"threads",
     [](Args &) {
         free(gThreadTable);
         gThreadTable = nullptr;
         return std::string();
     }},
    {"LogThread",
     [](Args &a) {
         const std::string file = fake::resolve(("/var/run/" + a.str(0) + ".thread.pid").c_str());
         const int rc = COM_LogThread(a.s(0));
         return std::to_string(rc) + " " + q(fake::readFile(file));
     }},
    {"LogThreadMemUsage", [](Args &a) { return std::to_string(COM_LogThreadMemUsage(a.n(0))); }},
    {"ShowThread", cases::step([](Args &) { COM_ShowThread(); })},
    // Checks the state of the last child started.
    {"CheckThreadState",
     [](Args &) {
         COM_THREAD_RECORD &r = records.back();
         const int rc = COM_CheckThreadState(&r);
         return std::to_string(rc) + " " + q(r.state);
     }},
}));

} // namespace
