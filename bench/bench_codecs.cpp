// MD5, SHA-1 and Base64 throughput on 64 KiB and 16 MiB buffers, beside
// OpenSSL's MD5 and SHA-1 and coreutils' md5sum, sha1sum and base64 on a file
// of the same size, all in one run. scripts/bench.sh runs it with OpenSSL's
// vector and SHA-extension code switched off.
#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <random>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "COMMON.h"

extern char **environ;

namespace {

constexpr int64_t kSmall = 64 << 10;
constexpr int64_t kLarge = 16 << 20;

const std::vector<uint8_t> &randomBytes()
{
    static const std::vector<uint8_t> bytes = [] {
        std::vector<uint8_t> b(kLarge);
        std::mt19937 random(1);
        for (uint8_t &x : b) {
            x = static_cast<uint8_t>(random());
        }
        return b;
    }();
    return bytes;
}

const std::string &base64Text()
{
    static const std::string text = [] {
        std::string t(4 * (kLarge / 3 + 1) + 1, '\0');
        t.resize(static_cast<size_t>(COM_EncodeBase64(t.data(), randomBytes().data(), kLarge)));
        return t;
    }();
    return text;
}

template <typename Fn> void throughput(benchmark::State &state, Fn fn)
{
    const int64_t len = state.range(0);
    for (auto _ : state) {
        fn(randomBytes().data(), static_cast<size_t>(len));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * len);
}

void Md5(benchmark::State &state)
{
    char out[COM_MD5_TEXT_SIZE];
    throughput(state, [&](const uint8_t *p, size_t n) { COM_MakeBufMD5(out, p, n); });
}

void Sha1(benchmark::State &state)
{
    uint8_t out[COM_SHA1_SIZE];
    throughput(state, [&](const uint8_t *p, size_t n) { COM_MakeBufSHA1(out, p, n); });
}

void openssl(benchmark::State &state, const EVP_MD *md)
{
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    throughput(state,
               [&](const uint8_t *p, size_t n) { EVP_Digest(p, n, out, &size, md, nullptr); });
}
void OpenSslMd5(benchmark::State &state)
{
    openssl(state, EVP_md5());
}
void OpenSslSha1(benchmark::State &state)
{
    openssl(state, EVP_sha1());
}

void EncodeBase64(benchmark::State &state)
{
    std::vector<char> out(static_cast<size_t>(4 * (state.range(0) / 3 + 1) + 1));
    throughput(state, [&](const uint8_t *p, size_t n) {
        COM_EncodeBase64(out.data(), p, static_cast<int32_t>(n));
    });
}

// Decoding is counted in bytes of text read.
void DecodeBase64(benchmark::State &state)
{
    const std::string text = base64Text().substr(0, static_cast<size_t>(state.range(0)));
    std::vector<uint8_t> out(text.size());
    for (auto _ : state) {
        benchmark::DoNotOptimize(COM_DecodeBase64(out.data(), text.c_str()));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}

// A coreutils tool over a 16 MiB file in the page cache, its output thrown away.
void coreutils(benchmark::State &state, std::vector<std::string> args, bool text)
{
    char path[] = "/tmp/dvr-bench-XXXXXX";
    const int fd = mkstemp(path);
    const void *data = text ? static_cast<const void *>(base64Text().data()) : randomBytes().data();
    const size_t size = text ? base64Text().size() : randomBytes().size();
    if (fd < 0 || write(fd, data, size) != static_cast<ssize_t>(size)) {
        state.SkipWithError("cannot write the input file");
        return;
    }
    close(fd);
    args.push_back(path);
    std::vector<char *> argv;
    for (std::string &a : args) {
        argv.push_back(a.data());
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    for (auto _ : state) {
        pid_t pid = 0;
        int status = 0;
        if (posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0 ||
            waitpid(pid, &status, 0) != pid || status != 0) {
            state.SkipWithError("the tool failed");
            break;
        }
    }
    posix_spawn_file_actions_destroy(&actions);
    unlink(path);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
}
void CoreutilsMd5sum(benchmark::State &state)
{
    coreutils(state, {"md5sum"}, false);
}
void CoreutilsSha1sum(benchmark::State &state)
{
    coreutils(state, {"sha1sum"}, false);
}
void CoreutilsBase64(benchmark::State &state)
{
    coreutils(state, {"base64", "-w", "0"}, false);
}
void CoreutilsBase64Decode(benchmark::State &state)
{
    coreutils(state, {"base64", "-d"}, true);
}

} // namespace

BENCHMARK(Md5)->Arg(kSmall)->Arg(kLarge);
BENCHMARK(OpenSslMd5)->Arg(kSmall)->Arg(kLarge);
BENCHMARK(CoreutilsMd5sum)->UseRealTime();
BENCHMARK(Sha1)->Arg(kSmall)->Arg(kLarge);
BENCHMARK(OpenSslSha1)->Arg(kSmall)->Arg(kLarge);
BENCHMARK(CoreutilsSha1sum)->UseRealTime();
BENCHMARK(EncodeBase64)->Arg(kSmall)->Arg(kLarge);
BENCHMARK(CoreutilsBase64)->UseRealTime();
BENCHMARK(DecodeBase64)->Arg(kSmall)->Arg(kLarge);
BENCHMARK(CoreutilsBase64Decode)->UseRealTime();

BENCHMARK_MAIN();
