// The temporary-path owner: removes its file, hands it out on release, and
// logs a failed removal for the file that made it, keeping errno.
#include <gtest/gtest.h>

#include <cerrno>
#include <unistd.h>

#include "fd_io.h"
#include "test_support.h"

namespace {

TEST(TempPathOwner, RemovesReleasesAndLogsForItsMaker)
{
    const fake::TempDir dir;
    const std::string removed = dir.write("removed", "x");
    const std::string kept = dir.write("kept", "x");
    {
        const fdio::UniqueTempPath owner(removed.c_str(), "Maker");
        fdio::UniqueTempPath handedOut(kept.c_str(), "Maker");
        EXPECT_EQ(handedOut.release(), kept.c_str());
    }
    EXPECT_NE(access(removed.c_str(), F_OK), 0);
    EXPECT_EQ(access(kept.c_str(), F_OK), 0);

    int err = 0;
    const std::string log = fake::withoutLineNumbers(fake::captureStdout([&] {
        {
            const fdio::UniqueTempPath gone(removed.c_str(), "Maker");
        }
        err = errno;
    }));
    EXPECT_EQ(log, "test_fd_io.cpp,N:Maker(): unlink(" + removed +
                       ") failed : " + strerror(ENOENT) + "\n");
    EXPECT_EQ(err, ENOENT);
}

} // namespace
