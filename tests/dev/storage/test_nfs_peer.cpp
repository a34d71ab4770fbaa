// The UMNT call against rpcbind and a MOUNT responder, run by
// tests/peers/test_nfs_umount.sh in a network namespace of its own, where the
// calls are captured and decoded; skipped elsewhere.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <string>

#include "DEV.h"

namespace {

// Transport by the options: "tcp" anywhere but "notcp" tries TCP first; the
// port from "mountport=", else the portmapper's; the host from "addr=", else
// from the export text. 127.0.0.2 has no server: refused at once, on both roads.
TEST(NfsPeer, Umnt)
{
    const char *port = getenv("DVR_NFS_PEER");
    if (port == nullptr) {
        GTEST_SKIP() << "runs in tests/peers/test_nfs_umount.sh";
    }
    const std::string mp = std::string("mountport=") + port;
    const std::tuple<std::string, std::string, int> cases[] = {
        {"127.0.0.1:/export/tcp", "rw,soft,tcp,nolock," + mp, 0},
        {"127.0.0.1:/export/udp", "rw,proto=udp," + mp, 0},
        {"server-name.invalid:/export/addr", "rw,proto=tcp,addr=127.0.0.1", 0},
        {"127.0.0.1:/export/portmapper", "", 0},
        {"127.0.0.1:/export/notcp", "notcp," + mp, 0},
        {"127.0.0.2:/export/dead", "tcp," + mp, 1},
        {"127.0.0.2:/export/dead", "", 1},
    };
    for (const auto &[source, opts, result] : cases) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(Dev_NfsUmountRpc(source.c_str(), opts.empty() ? nullptr : opts.c_str()), result)
            << source << " " << opts;
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2)) << source;
    }
}

} // namespace
