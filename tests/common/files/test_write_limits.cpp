// The file writers under a file-size limit: one write a block, so the limit
// gives a short count that is reported, and no second write raises SIGXFSZ.
#include <gtest/gtest.h>

#include <cstdio>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "COMMON.h"
#include "test_support.h"

namespace {

// Runs the writers in a child limited to 100 bytes a file; what it logs and
// returns comes back through a pipe.
TEST(WriteLimits, ShortWriteIsReportedOnce)
{
    fake::TempDir dir;
    const std::string text(150, 'x');
    const std::string src = dir.write("src", text);
    int out[2];
    ASSERT_EQ(pipe(out), 0);
    const pid_t pid = fork();
    if (pid == 0) { // the log goes to the pipe: a file would meet the limit too
        dup2(out[1], STDOUT_FILENO);
        const struct rlimit limit = {100, 100};
        setrlimit(RLIMIT_FSIZE, &limit);
        const auto f = [&](const char *name) { return dir.file(name); };
        for (int rc : {COM_SaveDataIntoFile(f("a").c_str(), text.data(), 150),
                       COM_SetFileContent(f("b").c_str(), text.c_str()),
                       COM_AppendFileContent(f("c").c_str(), text.c_str()),
                       COM_CopyFile(f("d").c_str(), src.c_str()),
                       COM_File2FileAppend(f("e").c_str(), src.c_str())}) {
            printf("%d ", rc);
        }
        fflush(stdout);
        _exit(0);
    }
    close(out[1]);
    std::string got;
    char buf[1024];
    for (ssize_t n; (n = read(out[0], buf, sizeof buf)) > 0;) {
        got.append(buf, static_cast<size_t>(n));
    }
    close(out[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
    const std::string content = "file_content.cpp,N:COM_";
    EXPECT_EQ(fake::withoutLineNumbers(got),
              content + "SaveDataIntoFile(): write(" + dir.file("a") +
                  ") size failed - 100/150 - Success\n" + content + "SetFileContent(): write(" +
                  dir.file("b") + ") error : Success\n" + content + "AppendFileContent(): write(" +
                  dir.file("c") +
                  ") error : Success\n"
                  "file_copy.cpp,N: write(" +
                  dir.file("d") +
                  ") failed : Success\n"
                  "file_copy.cpp,N: failed to write 150 bytes from [" +
                  src + "] to [" + dir.file("e") + "]\n1 0 0 -1 -1 ");
    EXPECT_EQ(fake::readFile(dir.file("e")), text.substr(0, 100));
}

} // namespace
