// Commands, output readers, signals and watch passes, with real child
// processes, real pipes and the real /proc of the machine.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <mutex>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "COMMON.h"
#include "test_support.h"

namespace {

using fake::captureStdout;
using fake::withoutLineNumbers;

constexpr pid_t kNoSuchPid = 0x7FFFFFF0;

// Spins until cond holds, for a few seconds at most: waits for a state that
// a real event brings, and fails instead of hanging when it never comes.
template <typename Cond> bool eventually(Cond cond)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!cond()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        sched_yield();
    }
    return true;
}

std::string logOf(const std::function<void()> &fn)
{
    return withoutLineNumbers(captureStdout(fn));
}

// ------------------------------------------------------------ COM_System

TEST(System, StatusesAndWords)
{
    auto words = [](int n) {
        std::string s = "w";
        for (int i = 1; i < n; ++i) {
            s += " w";
        }
        return s;
    };
    const std::string refused = "process_run.cpp,N:COM_ParserCMD(): ";
    struct Case {
        std::string cmd;
        int status;
        std::string output;
    } const cases[] = {
        {"/bin/true", 0, ""},
        {"   /usr/bin/printf   [%s]   a\tb    c  ", 0, "[a\tb][c]"},
        {"/bin/sh -c exit\t3", 3 << 8, ""},
        {"/bin/sh -c kill\t-INT\t$$", SIGINT, ""}, // SIGINT is the child's again
        {"/no/such/cmd a", 127 << 8, refused + "[/no/such/cmd] error : No such file or directory\n"},
        {"   ", 127 << 8, refused + "[] error : No such file or directory\n"},
        {"/bin/echo " + words(126), 0, words(126) + "\n"}, // 127 words in all
        {"/bin/echo " + words(127), 127 << 8, refused + "[/bin/echo] error : Argument list too long\n"},
        {"/bin/echo " + std::string(127, 'a'), 0, std::string(127, 'a') + "\n"},
        {"/bin/echo " + std::string(128, 'a'), 127 << 8, refused + "[/bin/echo] error : File name too long\n"},
    };
    for (const Case &c : cases) {
        int status = -2;
        EXPECT_EQ(logOf([&] { status = COM_System(c.cmd.c_str(), nullptr); }), c.output) << c.cmd;
        EXPECT_EQ(status, c.status) << c.cmd;
    }
    EXPECT_EQ(logOf([] { EXPECT_EQ(COM_System(nullptr, nullptr), -1); }), "process_run.cpp,N:COM_System(): pCMD == NULL\n");
}

TEST(System, ChildHoldsOnlyTheStandardDescriptors)
{
    int fds[2];
    ASSERT_EQ(pipe(fds), 0); // inherited across exec unless closed
    const int file = open("/dev/null", O_RDONLY);
    // ls lists its own directory descriptor as 3.
    EXPECT_EQ(captureStdout([] { COM_System("/bin/ls /proc/self/fd", nullptr); }), "0\n1\n2\n3\n");
    close(fds[0]);
    close(fds[1]);
    close(file);
    EXPECT_EQ(logOf([] { COM_CloseFdExceptSTD(kNoSuchPid); }),
              "process_run.cpp,N:COM_CloseFdExceptSTD(): opendir(/proc/2147483632/fd) error : No such file or directory\n");
}

void noteSignal(int) {}

TEST(System, PidAndSignalStateWhileTheCommandRuns)
{
    struct sigaction mine {}, saved {}, seen {};
    mine.sa_handler = noteSignal;
    sigaction(SIGINT, &mine, &saved);
    int pid = 0;
    int status = 0;
    bool chldBlockedAfter = true;
    std::thread runner([&] {
        status = COM_System("/bin/sleep 1000", &pid);
        sigset_t mask;
        pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        chldBlockedAfter = sigismember(&mask, SIGCHLD) == 1;
    });
    int running = 0;
    EXPECT_TRUE(eventually([&] { return (running = __atomic_load_n(&pid, __ATOMIC_SEQ_CST)) != 0; }));
    sigaction(SIGINT, nullptr, &seen);
    EXPECT_EQ(seen.sa_handler, SIG_IGN);
    EXPECT_EQ(COM_KillPid(running, 0), 0);
    runner.join();
    EXPECT_EQ(status, SIGTERM);
    EXPECT_EQ(pid, 0);
    EXPECT_FALSE(chldBlockedAfter);
    sigaction(SIGINT, &saved, &seen);
    EXPECT_EQ(seen.sa_handler, noteSignal);
}

// ------------------------------------------------------------ COM_PopenRead

std::mutex gLinesMutex;
std::condition_variable gLinesChanged;
std::vector<std::string> gLines; // "<end>" for the closing call

void recordLine(char *line, uint32_t value)
{
    EXPECT_EQ(value, 0xC0FFEEu);
    std::lock_guard lock(gLinesMutex);
    gLines.push_back(line != nullptr ? line : "<end>");
    gLinesChanged.notify_all();
}

std::vector<std::string> popenLines(const std::string &cmd, int expectedRc)
{
    gLines.clear();
    EXPECT_EQ(COM_PopenRead(cmd.c_str(), 0, 0xC0FFEE, recordLine), expectedRc) << cmd;
    return gLines;
}

TEST(PopenRead, LinesPiecesAndTheEnd)
{
    using Lines = std::vector<std::string>;
    EXPECT_EQ(popenLines("printf 'a\\nb'", 0), (Lines{"a\n", "b", "<end>"}));
    EXPECT_EQ(popenLines("true", 0), Lines{"<end>"});
    EXPECT_EQ(popenLines("printf '%300s\\n' | tr ' ' y", 0), (Lines{std::string(255, 'y'), std::string(45, 'y') + "\n", "<end>"}));
    EXPECT_EQ(logOf([] { EXPECT_EQ(popenLines("echo x; exit 1", 256), (Lines{"x\n", "<end>"})); }),
              "process_run.cpp,N:COM_PopenRead(): pclose() return 256\n");
    // An ignored SIGCHLD would let the child be reaped before pclose() sees it.
    signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(logOf([] { EXPECT_EQ(COM_PopenRead("echo unread; exit 3", 0, 0, nullptr), 3 << 8); }),
              "process_run.cpp,N:COM_PopenRead(): pclose() return 768\n");
    EXPECT_EQ(signal(SIGCHLD, SIG_DFL), SIG_DFL);
}

bool blockedIn(pid_t tid, std::initializer_list<const char *> calls)
{
    const std::string path = "/proc/" + std::to_string(getpid()) + "/task/" + std::to_string(tid) + "/wchan";
    return eventually([&] {
        const std::string wchan = fake::readFile(path);
        return std::any_of(calls.begin(), calls.end(), [&](const char *c) { return wchan.find(c) != std::string::npos; });
    });
}

// The output of a command that pauses comes line by line as it is written,
// and a signal, whether it meets the wait or the read, loses nothing.
TEST(PopenRead, LinesComeAsWrittenThroughSignals)
{
    fake::TempDir dir;
    const std::string fifo = dir.file("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    struct sigaction wake {}, saved {};
    wake.sa_handler = noteSignal; // no SA_RESTART: select() and read() fail with EINTR
    sigaction(SIGUSR1, &wake, &saved);
    const pthread_t reader = pthread_self();
    const pid_t tid = gettid();
    bool prompt = false, inWait = false, inRead = false;
    std::thread writer([&] {
        const int fd = open(fifo.c_str(), O_WRONLY);
        auto send = [fd](const char *s) { EXPECT_EQ(write(fd, s, strlen(s)), static_cast<ssize_t>(strlen(s))); };
        send("a\nb\n");
        std::unique_lock lock(gLinesMutex);
        prompt = gLinesChanged.wait_for(lock, std::chrono::seconds(10), [] { return gLines.size() == 2; });
        lock.unlock();
        inWait = blockedIn(tid, {"select", "poll"});
        pthread_kill(reader, SIGUSR1);
        send("c");
        inRead = blockedIn(tid, {"pipe_read"});
        pthread_kill(reader, SIGUSR1);
        send("d\n");
        close(fd);
    });
    const auto lines = popenLines("/bin/cat " + fifo, 0);
    writer.join();
    sigaction(SIGUSR1, &saved, nullptr);
    EXPECT_TRUE(prompt) << "a line waited for more output";
    EXPECT_TRUE(inWait && inRead);
    EXPECT_EQ(lines, (std::vector<std::string>{"a\n", "b\n", "cd\n", "<end>"}));
}

// A pipe whose descriptor an fd_set can't hold is still read.
TEST(PopenRead, PipeAboveTheSelectLimit)
{
    struct rlimit saved {};
    getrlimit(RLIMIT_NOFILE, &saved);
    struct rlimit more = saved;
    more.rlim_cur = std::max<rlim_t>(saved.rlim_cur, std::min<rlim_t>(saved.rlim_max, FD_SETSIZE + 16));
    if (setrlimit(RLIMIT_NOFILE, &more) != 0 || more.rlim_cur < FD_SETSIZE + 16) {
        GTEST_SKIP() << "no room for descriptors above FD_SETSIZE";
    }
    std::vector<int> fillers;
    for (int fd = 0; fd >= 0 && fd < FD_SETSIZE - 1;) {
        fillers.push_back(fd = open("/dev/null", O_RDONLY));
    }
    EXPECT_EQ(popenLines("echo high", 0), (std::vector<std::string>{"high\n", "<end>"}));
    for (int fd : fillers) {
        close(fd);
    }
    setrlimit(RLIMIT_NOFILE, &saved);
}

// ------------------------------------------------------------ named processes

// Children with a command line no other process has: /bin/sleep started
// under a name inside the test's directory.
class Sleepers {
public:
    Sleepers(const std::string &name, int count)
    {
        for (int i = 0; i < count; ++i) {
            const pid_t pid = fork();
            if (pid == 0) {
                execl("/bin/sleep", name.c_str(), "1000", static_cast<char *>(nullptr));
                _exit(127);
            }
            pids.push_back(pid);
            const std::string cmdline = "/proc/" + std::to_string(pid) + "/cmdline";
            EXPECT_TRUE(eventually([&] { return fake::readFile(cmdline).starts_with(name); }));
        }
    }
    ~Sleepers()
    {
        for (pid_t pid : pids) {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
    }
    // Waits for the child to end; returns the signal that ended it.
    int reap(pid_t pid)
    {
        int status = 0;
        waitpid(pid, &status, 0);
        std::erase(pids, pid);
        return WIFSIGNALED(status) ? WTERMSIG(status) : -1;
    }
    std::vector<pid_t> pids;
};

int gMissingCalls = 0;
void onMissing() { ++gMissingCalls; }

TEST(WatchDog, CountsEveryMatchAndCallsForTheMissingEachPass)
{
    fake::TempDir dir;
    const std::string name = dir.file("napper");
    const std::string longName = dir.file(std::string(80, 'n')); // past the 79 bytes compared
    Sleepers two(name, 2), one(longName, 1);
    const std::string gone = dir.file("gone"), cut = longName.substr(0, 79), whole = longName.substr(0, 80);
    COM_WATCH_ITEM items[] = {{name.c_str(), 9, onMissing}, {gone.c_str(), 9, onMissing}, {nullptr, 9, nullptr},
                              {cut.c_str(), 9, nullptr}, {whole.c_str(), 9, nullptr}};
    COM_WATCH_LIST list = {5, items};
    gMissingCalls = 0;
    for (int pass = 1; pass <= 2; ++pass) {
        EXPECT_EQ(logOf([&] { EXPECT_EQ(COM_WatchDog(&list), 0); }),
                  "process_signal.cpp,N:COM_WatchDog(): [1 - " + gone + "] : not found\n"
                  "process_signal.cpp,N:COM_WatchDog(): [2 - (null)] : not found\n"
                  "process_signal.cpp,N:COM_WatchDog(): [4 - " + whole + "] : not found\n");
        const int found[] = {items[0].found, items[1].found, items[2].found, items[3].found, items[4].found};
        EXPECT_EQ(std::vector<int>(std::begin(found), std::end(found)), (std::vector<int>{2, 0, 0, 1, 0}));
        EXPECT_EQ(gMissingCalls, pass);
    }
    EXPECT_EQ(COM_WatchDog(nullptr), -1);
}

TEST(KillProcess, SignalsTheFirstMatchOnly)
{
    fake::TempDir dir;
    const std::string name = dir.file("napper");
    Sleepers two(name, 2);
    int rc = -2;
    const std::string log = logOf([&] { rc = COM_KillProcess(name.c_str(), 0, SIGTERM); });
    EXPECT_EQ(rc, 0);
    int status = 0;
    const pid_t ended = waitpid(-1, &status, 0);
    std::erase(two.pids, ended);
    ASSERT_EQ(two.pids.size(), 1u);
    EXPECT_EQ(WTERMSIG(status), SIGTERM);
    EXPECT_EQ(log, "process_signal.cpp,N: [pid:" + std::to_string(getpid()) + "] - kill(" + std::to_string(ended) + "[" +
                       name + "], 15)\n");
    kill(two.pids[0], SIGKILL); // a SIGTERM sent before would have ended it first
    EXPECT_EQ(two.reap(two.pids[0]), SIGKILL);
}

TEST(KillProcess, NothingSentWithoutATarget)
{
    const std::string self = fake::readFile("/proc/self/cmdline").c_str();
    const std::string pid = std::to_string(getpid());
    struct Case {
        const char *name;
        pid_t pid;
        std::string log;
    } const cases[] = {
        {nullptr, 0, ""},
        {"", 0, ""},
        {"/no/such/program", 0, ""},
        {nullptr, kNoSuchPid, "process_signal.cpp,N: kill(2147483632, 0) fail : No such process\n"},
        {self.c_str(), 0, "process_signal.cpp,N: [pid:" + pid + "] - kill(0[" + self + "], 0)\n"}, // met as "self"
    };
    for (const Case &c : cases) {
        EXPECT_EQ(logOf([&] { EXPECT_EQ(COM_KillProcess(c.name, c.pid, 0), -1); }), c.log);
    }
}

TEST(KillPid, SendsTermAndWaitsTheGivenTime)
{
    fake::TempDir dir;
    Sleepers one(dir.file("napper"), 1);
    fake::clock::enable();
    EXPECT_EQ(COM_KillPid(one.pids[0], 1500000), 0);
    EXPECT_EQ(fake::clock::sleptNs(), 1'500'000'000);
    EXPECT_EQ(one.reap(one.pids[0]), SIGTERM);
    EXPECT_EQ(logOf([] { EXPECT_EQ(COM_KillPid(0, 10), -1); }), "process_signal.cpp,N:COM_KillPid(): Invalid pid = 0\n");
    EXPECT_EQ(logOf([] { EXPECT_EQ(COM_KillPid(kNoSuchPid, 10), -1); }),
              "process_signal.cpp,N:COM_KillPid(): kill(2147483632) failed : No such process\n");
    EXPECT_EQ(fake::clock::sleptNs(), 1'500'000'000);
}

TEST(SavePid, DecimalWithoutLineFeed)
{
    fake::TempDir dir;
    EXPECT_EQ(COM_SavePid(dir.file("pid").c_str()), 0);
    EXPECT_EQ(fake::readFile(dir.file("pid")), std::to_string(getpid()));
    EXPECT_EQ(COM_SavePid(nullptr), -1);
    const std::string bad = dir.file("no/pid");
    EXPECT_EQ(logOf([&] { EXPECT_EQ(COM_SavePid(bad.c_str()), -1); }),
              "process_signal.cpp,N:COM_SavePid(): open(" + bad + ") error : No such file or directory\n");
}

} // namespace
