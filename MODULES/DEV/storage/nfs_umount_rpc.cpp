#include "DEV.h"
#include "DNS.h"

#include <arpa/inet.h>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <rpc/rpc.h>
#include <string_view>

namespace {

constexpr u_long kMountProgram = 100005;
constexpr u_long kMountVersion = 1;
constexpr u_long kUmntProcedure = 3;
constexpr size_t kHostSize = 80;
constexpr size_t kPathSize = 80;
constexpr int kUdpRetrySeconds = 3;
constexpr int kCallSeconds = 20;

// Where and how the UMNT call goes.
struct Target {
    char host[kHostSize] = {};
    char path[kPathSize] = {};
    int port = 0; // 0: the portmapper tells
    bool tcp = false;
};

// Copies text into a buffer of size bytes; false when it doesn't fit, so the
// call never goes to a cut host or for a cut path.
bool copyWhole(char *out, size_t size, std::string_view text)
{
    if (text.size() >= size) {
        return false;
    }
    memcpy(out, text.data(), text.size());
    out[text.size()] = '\0';
    return true;
}

// The port behind "mountport=" when a digit follows, else 0; a number that is
// no port leaves it to the portmapper as well.
int mountPort(const char *opts)
{
    const char *at = strstr(opts, "mountport=");
    if (at == nullptr) {
        return 0;
    }
    at += strlen("mountport=");
    if (*at < '0' || *at > '9') {
        return 0;
    }
    const long port = strtol(at, nullptr, 10);
    return port <= 65535 ? static_cast<int>(port) : 0;
}

bool parseTarget(const char *pSpec, const char *pOpts, Target &t)
{
    const std::string_view source(pSpec);
    const size_t colon = source.find(':');
    if (!copyWhole(t.host, sizeof t.host, source.substr(0, colon)) ||
        !copyWhole(t.path, sizeof t.path, source.substr(colon + 1))) {
        return false;
    }
    if (pOpts == nullptr) {
        return true;
    }
    if (const char *addr = strstr(pOpts, "addr="); addr != nullptr) {
        const std::string_view rest(addr + strlen("addr="));
        if (!copyWhole(t.host, sizeof t.host, rest.substr(0, rest.find(',')))) {
            return false;
        }
    }
    t.port = mountPort(pOpts);
    t.tcp = strstr(pOpts, "notcp") == nullptr && strstr(pOpts, "tcp") != nullptr;
    return true;
}

// The encoders as clnt_call takes them.
xdrproc_t encoder(int (*fn)(struct __rpc_xdr *, char **))
{
    return reinterpret_cast<xdrproc_t>(reinterpret_cast<void (*)(void)>(fn));
}
xdrproc_t voidDecoder()
{
    return reinterpret_cast<xdrproc_t>(reinterpret_cast<void (*)(void)>(xdr_void));
}

CLIENT *makeClient(sockaddr_in &server, bool tcp)
{
    CLIENT *client = nullptr;
    int sock = RPC_ANYSOCK;
    if (tcp) {
        client = clnttcp_create(&server, kMountProgram, kMountVersion, &sock, 0, 0);
        if (client == nullptr) {
            clnt_pcreateerror("Cannot MOUNTPROG RPC (tcp)");
        }
    }
    if (client == nullptr) {
        sock = RPC_ANYSOCK;
        timeval retry{kUdpRetrySeconds, 0};
        client = clntudp_create(&server, kMountProgram, kMountVersion, retry, &sock);
        if (client == nullptr) {
            clnt_pcreateerror("Cannot MOUNTPROG RPC");
        }
    }
    return client;
}

} // namespace

int Dev_NfsUmountRpc(const char *pSpec, const char *pOpts)
{
    if (pSpec == nullptr || strchr(pSpec, ':') == nullptr) {
        return 1;
    }
    Target t;
    if (!parseTarget(pSpec, pOpts, t)) {
        return 1;
    }
    DnsRecord records[DNS_MAX_RECORDS] = {};
    if (DNS_GetA(t.host, records) != 0) {
        return 1;
    }
    sockaddr_in server{};
    server.sin_family = AF_INET;
    server.sin_addr.s_addr = records[0].addr;
    server.sin_port = htons(static_cast<uint16_t>(t.port));

    CLIENT *client = makeClient(server, t.tcp);
    if (client == nullptr) {
        return 1;
    }
    client->cl_auth = authunix_create_default();
    int result = 1;
    char *path = t.path;
    const timeval total{kCallSeconds, 0};
    if (clnt_call(client, kUmntProcedure, encoder(Dev_XdrDirPath), reinterpret_cast<char *>(&path),
                  voidDecoder(), nullptr, total) != RPC_SUCCESS) {
        clnt_perror(client, "Bad UMNT RPC");
    } else {
        result = 0;
    }
    auth_destroy(client->cl_auth);
    clnt_destroy(client);
    return result;
}
