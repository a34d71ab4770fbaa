// A GET of a large body from a web server on loopback: the command client's
// throughput and peak memory beside curl's, in one run. Each fetch runs in a
// child process, so its peak resident size (wait4) is its own; the peak of a
// child that fetches nothing is subtracted. scripts/bench.sh http starts
// nginx and runs it: dvr_bench_http host/path body-bytes [repetitions]
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "COMMON.h"

namespace {
struct Run {
    double seconds;
    long maxRssKiB;
};

// Runs fn in a child; fn's result (seconds) comes back through a pipe.
template <typename Fn> Run inChild(Fn fn)
{
    int fds[2];
    if (pipe(fds) != 0) {
        exit(1);
    }
    const pid_t pid = fork();
    if (pid == 0) {
        const double s = fn();
        if (write(fds[1], &s, sizeof s) != sizeof s) {
            _exit(1);
        }
        _exit(0);
    }
    double s = -1;
    if (read(fds[0], &s, sizeof s) != sizeof s) {
        s = -1;
    }
    COM_SafeClose(&fds[0]);
    COM_SafeClose(&fds[1]);
    int status = 0;
    rusage usage{};
    wait4(pid, &status, 0, &usage);
    return {s, usage.ru_maxrss};
}

double now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

Run median(std::vector<Run> runs)
{
    std::sort(runs.begin(), runs.end(), [](auto &a, auto &b) { return a.seconds < b.seconds; });
    return runs[runs.size() / 2];
}
} // namespace

int main(int argc, char **argv)
{
    if (argc < 3) {
        fprintf(stderr, "usage: %s host/path body-bytes [repetitions]\n", argv[0]);
        return 2;
    }
    const std::string url = argv[1];
    const long long body = atoll(argv[2]);
    const int reps = argc > 3 ? atoi(argv[3]) : 5;
    const std::string host = url.substr(0, url.find('/')), path = url.substr(url.find('/'));
    // nginx refuses the GET template's "Accept : */*" (a blank before the
    // colon), so the client sends a plain GET through its raw command: the same
    // connection, receive loop and answer buffer.
    const std::string request = "GET " + path + " HTTP/1.1\r\nHost: " + host + "\r\n\r\n";

    const Run idle = inChild([] { return 0.0; });
    std::vector<Run> ours, curls;
    for (int i = 0; i < reps; ++i) {
        ours.push_back(inChild([&] {
            char *out = nullptr;
            const double start = now();
            const int n = COM_SendRawHttpCmd(url.c_str(), &out, nullptr, request.c_str());
            const double s = now() - start;
            free(out);
            return n == body + 1 ? s : -1.0;
        }));
        curls.push_back(inChild([&] {
            const std::string command =
                "curl -s -o /dev/null -w '%{time_total}' 'http://" + url + "'";
            FILE *p = popen(command.c_str(), "r");
            double s = -1;
            if (p == nullptr || fscanf(p, "%lf", &s) != 1) {
                s = -1;
            }
            if (p != nullptr) {
                pclose(p);
            }
            return s;
        }));
    }
    const Run a = median(ours), c = median(curls);
    if (a.seconds <= 0 || c.seconds <= 0) {
        fprintf(stderr, "a fetch failed\n");
        return 1;
    }
    const double mib = static_cast<double>(body) / (1 << 20);
    printf("body %.1f MiB, median of %d\n", mib, reps);
    printf("COM_SendRawHttpCmd: %8.1f MiB/s, peak %6.1f MiB over an idle child (%.2fx body)\n",
           mib / a.seconds, (a.maxRssKiB - idle.maxRssKiB) / 1024.0,
           (a.maxRssKiB - idle.maxRssKiB) / 1024.0 / mib);
    printf("curl (time_total): %8.1f MiB/s, peak resident of the shell and curl %6.1f MiB\n",
           mib / c.seconds, c.maxRssKiB / 1024.0);
    printf("throughput ratio: %.2f\n", c.seconds / a.seconds);
    // The client pauses 30 ms between its request and its first read, a
    // fixed part of every command; this ratio leaves it out.
    constexpr double kPause = 0.030;
    printf("throughput ratio without the 30 ms pause: %.2f (%.1f of %.1f ms paused)\n",
           c.seconds / (a.seconds - kPause), kPause * 1e3, a.seconds * 1e3);
    return 0;
}
