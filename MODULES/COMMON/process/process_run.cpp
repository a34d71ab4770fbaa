#include "COMMON.h"
#include "com_log.h"
#include "fd_io.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <string_view>
#include <sys/select.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {
// A command has at most kMaxWords - 1 words (the last slot holds the null
// pointer) of at most kWordSize - 1 characters.
constexpr int kMaxWords = 128;
constexpr size_t kWordSize = 128;
constexpr size_t kFdDirPathSize = 64;
// Output lines reach the callback in pieces of at most kOutputLineSize - 1.
constexpr size_t kOutputLineSize = 256;
constexpr size_t kOutputBlockSize = 4096;
// Exit status of a child whose command could not be started.
constexpr int kExecFailed = 127;

// The signal state COM_System changes for the time of a command.
struct SignalState {
    struct sigaction intAction;
    struct sigaction quitAction;
    sigset_t mask;
};

// Ignores SIGINT and SIGQUIT and blocks SIGCHLD, keeping what was there;
// a failure leaves everything as it was.
bool holdSignals(SignalState &saved)
{
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigemptyset(&ignore.sa_mask);
    sigset_t chld;
    sigemptyset(&chld);
    sigaddset(&chld, SIGCHLD);
    if (sigaction(SIGINT, &ignore, &saved.intAction) != 0) {
        return false;
    }
    if (sigaction(SIGQUIT, &ignore, &saved.quitAction) != 0) {
        sigaction(SIGINT, &saved.intAction, nullptr);
        return false;
    }
    if (sigprocmask(SIG_BLOCK, &chld, &saved.mask) != 0) {
        sigaction(SIGINT, &saved.intAction, nullptr);
        sigaction(SIGQUIT, &saved.quitAction, nullptr);
        return false;
    }
    return true;
}

bool restoreSignals(const SignalState &saved)
{
    const bool intOk = sigaction(SIGINT, &saved.intAction, nullptr) == 0;
    const bool quitOk = sigaction(SIGQUIT, &saved.quitAction, nullptr) == 0;
    const bool maskOk = sigprocmask(SIG_SETMASK, &saved.mask, nullptr) == 0;
    return intOk && quitOk && maskOk;
}

// Waits, with no time limit, until the pipe has bytes or its writer has gone.
// A descriptor that an fd_set can't hold is not waited for: the read blocks.
void waitReadable(int fd)
{
    if (fd < 0 || fd >= FD_SETSIZE) {
        return;
    }
    for (;;) {
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(fd, &readable);
        if (select(fd + 1, &readable, nullptr, nullptr, nullptr) != -1 || errno != EINTR) {
            return;
        }
    }
}

// A command's output, read from the pipe in blocks and cut into pieces as
// fgets() cuts them. It waits only when the block read before is used up, so
// a line that has come never waits in a buffer for output still to come.
class OutputReader {
public:
    explicit OutputReader(int fd) : fd_(fd) {}

    // Fills line with the next piece, at most size - 1 bytes and no further
    // than the first line feed; false at the end of the output.
    bool next(char *line, size_t size)
    {
        size_t n = 0;
        while (n + 1 < size && (pos_ < end_ || fill())) {
            line[n] = block_[pos_++];
            if (line[n++] == '\n') {
                break;
            }
        }
        line[n] = '\0';
        return n > 0;
    }

private:
    // A read that a signal interrupts is done again: that is not the end.
    bool fill()
    {
        waitReadable(fd_);
        ssize_t got;
        while ((got = read(fd_, block_, sizeof block_)) < 0 && errno == EINTR) {
        }
        pos_ = 0;
        end_ = static_cast<size_t>(std::max<ssize_t>(got, 0));
        return end_ > 0;
    }

    int fd_;
    char block_[kOutputBlockSize];
    size_t pos_ = 0;
    size_t end_ = 0;
};
} // namespace

int COM_ParserCMD(const char *cmd)
{
    char words[kMaxWords][kWordSize];
    char *argv[kMaxWords];
    int count = 0;
    int err = 0;
    std::string_view rest(cmd != nullptr ? cmd : "");
    std::string_view first;
    for (;;) {
        const size_t start = rest.find_first_not_of(' ');
        if (start == std::string_view::npos) {
            break;
        }
        rest.remove_prefix(start);
        const std::string_view word = rest.substr(0, rest.find(' '));
        rest.remove_prefix(word.size());
        if (count == 0) {
            first = word;
        }
        // A cut or shortened command could do something else than asked:
        // it is not started at all.
        if (count == kMaxWords - 1) {
            err = E2BIG;
            break;
        }
        if (word.size() >= kWordSize) {
            err = ENAMETOOLONG;
            break;
        }
        word.copy(words[count], word.size());
        words[count][word.size()] = '\0';
        argv[count] = words[count];
        ++count;
    }
    argv[count] = nullptr;

    if (err == 0 && count == 0) {
        err = ENOENT;
    }
    if (err == 0) {
        execv(argv[0], argv);
        err = errno;
    }
    COM_LOG(__func__, "[%.*s] error : %s\n", static_cast<int>(first.size()), first.data(),
            strerror(err));
    return -1;
}

void COM_CloseFdExceptSTD(pid_t pid)
{
    char path[kFdDirPathSize];
    snprintf(path, sizeof path, "/proc/%d/fd", static_cast<int>(pid));
    const fdio::UniqueDir dir = fdio::openDir(path);
    if (!dir) {
        COM_LOG_FAILED_CALL(__func__, "opendir(%s) error : %s\n", path);
        return;
    }
    // The directory's own descriptor stays until the listing is read.
    const int own = dirfd(dir.get());
    while (const dirent *entry = readdir(dir.get())) {
        const long fd = strtol(entry->d_name, nullptr, 10);
        if (fd > STDERR_FILENO && fd <= INT_MAX && fd != own) {
            close(static_cast<int>(fd));
        }
    }
}

int COM_System(const char *cmd, int *pPid)
{
    if (cmd == nullptr) {
        COM_LOG(__func__, "pCMD == NULL\n");
        return -1;
    }
    SignalState saved;
    if (!holdSignals(saved)) {
        return -1;
    }
    // Output still in the buffer would be printed by the child a second time.
    fflush(stdout);

    int status = -1;
    const pid_t pid = fork();
    if (pid == 0) {
        COM_CloseFdExceptSTD(getpid());
        restoreSignals(saved);
        COM_ParserCMD(cmd);
        fflush(stdout); // the report of a command that didn't start
        _exit(kExecFailed);
    }
    if (pid < 0) {
        COM_LOG_FAILED_CALL(__func__, "fork() failed : %s\n");
    } else {
        if (pPid != nullptr) {
            *pPid = pid;
        }
        while (waitpid(pid, &status, 0) < 0) {
            if (errno != EINTR) {
                status = -1;
                break;
            }
        }
        if (pPid != nullptr) {
            *pPid = 0;
        }
    }
    if (!restoreSignals(saved)) {
        return -1;
    }
    return status;
}

int COM_PopenRead(const char *cmd, uint32_t unused, uint32_t value, COM_POPEN_LINE_FN fn)
{
    // pclose() needs the child's status: an ignored SIGCHLD would reap it.
    signal(SIGCHLD, SIG_DFL);
    fdio::UniquePipe pipe;
    if (cmd == nullptr) {
        errno = EINVAL;
    } else {
        pipe = fdio::openPipe(cmd, "r");
    }
    if (!pipe) {
        COM_LOG_FAILED_CALL(__func__, "popen(%s) error : %s\n", cmd != nullptr ? cmd : "(null)");
        return -1;
    }

    OutputReader output(fileno(pipe.get()));
    char line[kOutputLineSize];
    for (;;) {
        memset(line, 0, sizeof line);
        if (!output.next(line, sizeof line)) {
            break;
        }
        if (fn != nullptr) {
            fn(line, value);
        }
    }

    const int rc = fdio::closePipe(pipe);
    if (rc == -1) {
        COM_LOG_FAILED_CALL(__func__, "pclose() error : %s\n");
    } else if (rc != 0) {
        COM_LOG(__func__, "pclose() return %d\n", rc);
    }
    if (fn != nullptr) {
        fn(nullptr, value);
    }
    return rc;
}
