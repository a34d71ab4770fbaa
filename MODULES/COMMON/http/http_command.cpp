// The command entry: authentication text, address, lookup, then one exchange
// per address until one connects; and the public settings of it.
#include "http_private.h"

#include <cstdlib>
#include <cstring>
#include <netinet/in.h>

#include "DNS.h"
#include "com_log.h"

namespace {
// Refuses, before any lookup or connection, a command whose request can't fit
// its buffer; the exchange would refuse it at every address.
bool requestFits(const char *func, int kind, const http::Address &address, const char *path,
                 const char *cookie, const char *authText, const char *data)
{
    char probe[http::kRequestSize];
    const int length = http::buildRequest(probe, sizeof probe, kind, address.host, address.port,
                                          path, cookie, authText, data);
    if (length >= 0) {
        return true;
    }
    COM_LOG(func, "buffer overflow : (len, limit) = (%d, %d)\n", -length - 1, http::kRequestSize);
    return false;
}
} // namespace

int COM_SubGetPostHttpContent(const char *url, char **out, COM_HTTP_AUTH *auth, int kind,
                              const char *data, int keep_header, const char *cookie, int https)
{
    if (url == nullptr || out == nullptr) {
        return -1;
    }
    data = data != nullptr ? data : "";
    char authText[http::kAuthTextSize];
    COM_MakeHttpAuthHeader(http::methodWord(kind), url, auth, authText);
    http::Address address;
    http::parseAddress(__func__, url, address);
    const char *path = http::pathOf(url);
    if (!requestFits(__func__, kind, address, path, cookie, authText, data)) {
        return -1;
    }
    DnsRecord records[DNS_MAX_RECORDS];
    memset(records, 0, sizeof records);
    if (DNS_GetA(address.host, records) != 0) {
        COM_LOG(__func__, "DNS_GetA(%s) return error [%s]\n", address.host, url);
        return -1;
    }
    for (const DnsRecord &record : records) {
        if (record.valid != 1) {
            continue;
        }
        sockaddr_in peer{};
        peer.sin_family = AF_INET;
        peer.sin_port = htons(static_cast<uint16_t>(address.port));
        peer.sin_addr.s_addr = record.addr;
        const int result = COM_SubSendHttpCmd(&peer, address.host, authText, path, out, auth, kind,
                                              data, keep_header, cookie, https);
        if (result != -1) {
            return result;
        }
    }
    return -1;
}

int COM_GetHttpContent(const char *url, char **out, COM_HTTP_AUTH *auth)
{
    return COM_SubGetPostHttpContent(url, out, auth, HTTP_CMD_GET, nullptr, 0, nullptr, 0);
}

int COM_GetHttpsContent(const char *url, char **out, COM_HTTP_AUTH *auth)
{
    return COM_SubGetPostHttpContent(url, out, auth, HTTP_CMD_GET, nullptr, 0, nullptr, 1);
}

int COM_PostHttpContent(const char *url, char **out, COM_HTTP_AUTH *auth, const char *data)
{
    return COM_SubGetPostHttpContent(url, out, auth, HTTP_CMD_POST, data, 0, nullptr, 0);
}

int COM_PostHttpHeaders(const char *url, char **out, COM_HTTP_AUTH *auth, const char *data)
{
    return COM_SubGetPostHttpContent(url, out, auth, HTTP_CMD_POST_HEADERS, data, 0, nullptr, 0);
}

int COM_GetHttpHeaderAndContent(const char *url, char **out, COM_HTTP_AUTH *auth)
{
    return COM_SubGetPostHttpContent(url, out, auth, HTTP_CMD_GET, nullptr, 1, nullptr, 0);
}

int COM_PostHttpHeaderAndContent(const char *url, char **out, COM_HTTP_AUTH *auth, const char *data)
{
    return COM_SubGetPostHttpContent(url, out, auth, HTTP_CMD_POST, data, 1, nullptr, 0);
}

int COM_PostHttpsHeaderAndContent(const char *url, char **out, COM_HTTP_AUTH *auth,
                                  const char *data)
{
    return COM_SubGetPostHttpContent(url, out, auth, HTTP_CMD_POST, data, 1, nullptr, 1);
}

int COM_GetHttpContentWithCookie(const char *url, char **out, COM_HTTP_AUTH *auth,
                                 const char *cookie)
{
    return COM_SubGetPostHttpContent(url, out, auth, HTTP_CMD_GET, nullptr, 0, cookie, 0);
}

int COM_PostHttpContentWithCookie(const char *url, char **out, COM_HTTP_AUTH *auth,
                                  const char *data, const char *cookie)
{
    return COM_SubGetPostHttpContent(url, out, auth, HTTP_CMD_POST, data, 0, cookie, 0);
}

int COM_SendRawHttpCmd(const char *url, char **out, COM_HTTP_AUTH *auth, const char *data)
{
    return COM_SubGetPostHttpContent(url, out, auth, HTTP_CMD_RAW, data, 0, nullptr, 0);
}

int COM_GetHttpPlainText(const char *url, char **out, COM_HTTP_AUTH *auth)
{
    char *raw = nullptr;
    const int result = COM_GetHttpContent(url, &raw, auth);
    if (result < 1) {
        return result;
    }
    const int stripped = COM_StripHtmlCode(raw, out);
    free(raw);
    return stripped;
}
