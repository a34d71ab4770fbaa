// Commands, output readers, signals and watch passes, with real child
// processes, real pipes and the real /proc of the machine.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <mutex>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "COMMON.h"
#include "test_support.h"

namespace {

constexpr pid_t kNoSuchPid = 0x7FFFFFF0;
using Lines = std::vector<std::string>;

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

using fake::logOf;

TEST(System, StatusesAndWords)
{
    std::string words126 = "w";
    while (words126.size() < 126 * 2 - 1) {
        words126 += " w";
    }
    const std::string refused = "process_run.cpp,N:COM_ParserCMD(): ";
    const std::tuple<std::string, int, std::string> cases[] = {
        {"/bin/true", 0, ""},
        {"   /usr/bin/printf   [%s]   a\tb    c  ", 0, "[a\tb][c]"},
        {"/bin/sh -c exit\t3", 3 << 8, ""},
        {"/bin/sh -c kill\t-INT\t$$", SIGINT, ""}, // SIGINT is the child's again
        {"/no/such/cmd a", 127 << 8,
         refused + "[/no/such/cmd] error : No such file or directory\n"},
        {"   ", 127 << 8, refused + "[] error : No such file or directory\n"},
        {"/bin/echo " + words126, 0, words126 + "\n"}, // 127 words in all
        {"/bin/echo " + words126 + " w", 127 << 8,
         refused + "[/bin/echo] error : Argument list too long\n"},
        {"/bin/echo " + std::string(127, 'a'), 0, std::string(127, 'a') + "\n"},
        {"/bin/echo " + std::string(128, 'a'), 127 << 8,
         refused + "[/bin/echo] error : File name too long\n"},
    };
    for (const auto &[cmd, status, output] : cases) {
        int got = -2;
        EXPECT_EQ(logOf([&] { got = COM_System(cmd.c_str(), nullptr); }), output) << cmd;
        EXPECT_EQ(got, status) << cmd;
    }
    EXPECT_EQ(logOf([] { EXPECT_EQ(COM_System(nullptr, nullptr), -1); }),
              "process_run.cpp,N:COM_System(): pCMD == NULL\n");
}

TEST(System, ChildHoldsOnlyTheStandardDescriptors)
{
    int fds[2];
    ASSERT_EQ(pipe(fds), 0); // inherited across exec unless closed
    // ls lists its own directory descriptor as 3.
    EXPECT_EQ(fake::captureStdout([] { COM_System("/bin/ls /proc/self/fd", nullptr); }),
              "0\n1\n2\n3\n");
    close(fds[0]);
    close(fds[1]);
    EXPECT_EQ(logOf([] { COM_CloseFdExceptSTD(kNoSuchPid); }),
              "process_run.cpp,N:COM_CloseFdExceptSTD(): opendir(/proc/2147483632/fd) error : No "
              "such file or directory\n");
}

// While the command runs its id is in *pPid and SIGINT is ignored; 0 after.
// COM_KillPid ends it and waits its time.
TEST(System, PidAndSignalStateWhileTheCommandRuns)
{
    int pid = 0, status = 0, running = 0;
    std::thread runner([&] { status = COM_System("/bin/sleep 1000", &pid); });
    EXPECT_TRUE(
        eventually([&] { return (running = __atomic_load_n(&pid, __ATOMIC_SEQ_CST)) != 0; }));
    EXPECT_EQ(signal(SIGINT, SIG_IGN), SIG_IGN);
    fake::clock::enable();
    EXPECT_EQ(COM_KillPid(running, 1500000), 0);
    EXPECT_EQ(fake::clock::sleptNs(), 1'500'000'000);
    runner.join();
    EXPECT_EQ(status, SIGTERM);
    EXPECT_EQ(pid, 0);
    EXPECT_EQ(signal(SIGINT, SIG_DFL), SIG_DFL);
}

std::mutex gLinesMutex;
Lines gLines; // "<end>" for the closing call

void recordLine(char *line, uint32_t value)
{
    EXPECT_EQ(value, 0xC0FFEEu);
    std::lock_guard lock(gLinesMutex);
    gLines.push_back(line != nullptr ? line : "<end>");
}

Lines popenLines(const std::string &cmd, int expectedRc)
{
    gLines.clear();
    EXPECT_EQ(COM_PopenRead(cmd.c_str(), 0, 0xC0FFEE, recordLine), expectedRc) << cmd;
    return gLines;
}

TEST(PopenRead, LinesPiecesAndTheEnd)
{
    EXPECT_EQ(popenLines("printf 'a\\nb'", 0), (Lines{"a\n", "b", "<end>"}));
    EXPECT_EQ(popenLines("true", 0), Lines{"<end>"});
    EXPECT_EQ(popenLines("printf '%300s\\n' | tr ' ' y", 0),
              (Lines{std::string(255, 'y'), std::string(45, 'y') + "\n", "<end>"}));
    EXPECT_EQ(logOf([] {
                  EXPECT_EQ(popenLines("echo x; exit 1", 256), (Lines{"x\n", "<end>"}));
              }),
              "process_run.cpp,N:COM_PopenRead(): pclose() return 256\n");
    // An ignored SIGCHLD would let the child be reaped before pclose() sees it.
    signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(logOf([] { EXPECT_EQ(COM_PopenRead("echo unread; exit 3", 0, 0, nullptr), 3 << 8); }),
              "process_run.cpp,N:COM_PopenRead(): pclose() return 768\n");
    EXPECT_EQ(signal(SIGCHLD, SIG_DFL), SIG_DFL);
    EXPECT_EQ(logOf([] { EXPECT_EQ(COM_PopenRead(nullptr, 0, 0, recordLine), -1); }),
              "process_run.cpp,N:COM_PopenRead(): popen((null)) error : Invalid argument\n");
}

// Each line of a command that pauses reaches the callback while the command
// still waits, and a signal that interrupts the wait loses nothing.
TEST(PopenRead, LinesComeAsWrittenThroughSignals)
{
    fake::TempDir dir;
    const std::string fifo = dir.file("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    struct sigaction wake {
    }, saved{};
    wake.sa_handler = [](int) {}; // no SA_RESTART: select() fails with EINTR
    sigaction(SIGUSR1, &wake, &saved);
    const pthread_t reader = pthread_self();
    const std::string wchan =
        "/proc/" + std::to_string(getpid()) + "/task/" + std::to_string(gettid()) + "/wchan";
    bool prompt = false, waiting = false;
    std::thread writer([&] {
        const int fd = open(fifo.c_str(), O_WRONLY);
        EXPECT_EQ(write(fd, "a\nb\n", 4), 4);
        prompt = eventually([] {
            std::lock_guard lock(gLinesMutex);
            return gLines.size() == 2;
        });
        waiting = eventually([&] { // do_select, poll_schedule_timeout ...
            const std::string in = fake::readFile(wchan);
            return in.find("select") != std::string::npos || in.find("poll") != std::string::npos;
        });
        pthread_kill(reader, SIGUSR1);
        EXPECT_EQ(write(fd, "c\n", 2), 2);
        close(fd);
    });
    const Lines lines = popenLines("/bin/cat " + fifo, 0);
    writer.join();
    sigaction(SIGUSR1, &saved, nullptr);
    EXPECT_TRUE(prompt) << "a line waited for more output";
    EXPECT_TRUE(waiting);
    EXPECT_EQ(lines, (Lines{"a\n", "b\n", "c\n", "<end>"}));
}

// Children with a command line no other process has: /bin/sleep started
// under a name inside the test's directory.
struct Sleepers {
    Sleepers(const std::string &name, int count)
    {
        char *argv[] = {const_cast<char *>(name.c_str()), const_cast<char *>("1000"), nullptr};
        for (pid_t pid = 0; count-- > 0 && posix_spawn(&pid, "/bin/sleep", nullptr, nullptr, argv,
                                                       environ) == 0;) {
            pids.push_back(pid);
            EXPECT_TRUE(eventually([&] {
                return fake::readFile("/proc/" + std::to_string(pid) + "/cmdline")
                    .starts_with(name);
            }));
        }
    }
    ~Sleepers()
    {
        for (pid_t pid : pids) {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
    }
    std::vector<pid_t> pids;
};

int gMissingCalls = 0;

TEST(WatchDog, CountsEveryMatchAndCallsForTheMissingEachPass)
{
    fake::TempDir dir;
    const std::string name = dir.file("napper"), gone = dir.file("gone");
    const std::string longName = dir.file(std::string(80, 'n')); // past the 79 bytes compared
    Sleepers two(name, 2), one(longName, 1);
    const std::string cut = longName.substr(0, 79), whole = longName.substr(0, 80);
    const auto onMissing = [] { ++gMissingCalls; };
    COM_WATCH_ITEM items[] = {{name.c_str(), 9, onMissing},
                              {gone.c_str(), 9, onMissing},
                              {nullptr, 9, nullptr},
                              {cut.c_str(), 9, nullptr},
                              {whole.c_str(), 9, nullptr}};
    COM_WATCH_LIST list = {5, items};
    gMissingCalls = 0;
    for (int pass = 1; pass <= 2; ++pass) {
        EXPECT_EQ(logOf([&] { EXPECT_EQ(COM_WatchDog(&list), 0); }),
                  "process_signal.cpp,N:COM_WatchDog(): [1 - " + gone +
                      "] : not found\n"
                      "process_signal.cpp,N:COM_WatchDog(): [2 - (null)] : not found\n"
                      "process_signal.cpp,N:COM_WatchDog(): [4 - " +
                      whole + "] : not found\n");
        EXPECT_EQ((std::vector<int>{items[0].found, items[1].found, items[2].found, items[3].found,
                                    items[4].found}),
                  (std::vector<int>{2, 0, 0, 1, 0}));
        EXPECT_EQ(gMissingCalls, pass);
    }
    EXPECT_EQ(COM_WatchDog(nullptr), -1);
}

TEST(KillProcess, SignalsTheFirstMatchOnly)
{
    fake::TempDir dir;
    const std::string name = dir.file("napper");
    Sleepers two(name, 2);
    int status = 0;
    const std::string log = logOf([&] { EXPECT_EQ(COM_KillProcess(name.c_str(), 0, SIGTERM), 0); });
    const pid_t ended = waitpid(-1, &status, 0);
    EXPECT_EQ(WTERMSIG(status), SIGTERM);
    EXPECT_EQ(log, "process_signal.cpp,N: [pid:" + std::to_string(getpid()) + "] - kill(" +
                       std::to_string(ended) + "[" + name + "], 15)\n");
    std::erase(two.pids, ended);
    ASSERT_EQ(two.pids.size(), 1u);
    kill(two.pids[0], SIGKILL); // a SIGTERM sent before would have ended it first
    waitpid(two.pids[0], &status, 0);
    EXPECT_EQ(WTERMSIG(status), SIGKILL);
    two.pids.clear();
}

TEST(PidsAndSignals, RefusalsAndThePidFile)
{
    const std::string self = fake::readFile("/proc/self/cmdline").c_str(),
                      me = std::to_string(getpid());
    const std::pair<std::function<int()>, std::string> cases[] = {
        {[] { return COM_KillProcess(nullptr, 0, 0); }, ""},
        // An empty name matches "self" first: reported, nothing sent.
        {[] { return COM_KillProcess("", 0, 0); },
         "process_signal.cpp,N: [pid:" + me + "] - kill(0[], 0)\n"},
        {[] { return COM_KillProcess(nullptr, kNoSuchPid, 0); },
         "process_signal.cpp,N: kill(2147483632, 0) fail : No such process\n"},
        // The caller's own command line is met first as the entry "self".
        {[&] { return COM_KillProcess(self.c_str(), 0, 0); },
         "process_signal.cpp,N: [pid:" + me + "] - kill(0[" + self + "], 0)\n"},
        {[] { return COM_KillPid(0, 10); },
         "process_signal.cpp,N:COM_KillPid(): Invalid pid = 0\n"},
        {[] { return COM_KillPid(kNoSuchPid, 10); },
         "process_signal.cpp,N:COM_KillPid(): kill(2147483632) failed : No such process\n"},
        {[] { return COM_SavePid(nullptr); }, ""},
        {[] { return COM_SavePid("/no/such/dir/pid"); },
         "process_signal.cpp,N:COM_SavePid(): open(/no/such/dir/pid) error : No such file or "
         "directory\n"},
    };
    for (const auto &[call, log] : cases) {
        EXPECT_EQ(logOf([&] { EXPECT_EQ(call(), -1); }), log);
    }
    fake::TempDir dir;
    EXPECT_EQ(COM_SavePid(dir.file("pid").c_str()), 0);
    EXPECT_EQ(fake::readFile(dir.file("pid")), me); // no line feed
}

} // namespace
