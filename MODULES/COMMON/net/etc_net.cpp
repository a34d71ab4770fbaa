// Readers of the system's network files: the interface named by "auto" in
// /etc/network/interfaces and the name servers of /etc/resolv.conf.
#include "fd_io.h"
#include "net_flags.h"
#include "net_text.h"

#include <arpa/inet.h>

namespace {

constexpr const char *kInterfacesPath = "/etc/network/interfaces";
constexpr const char *kResolvPath = "/etc/resolv.conf";
constexpr int kInterfacesLineSize = 128;
constexpr int kResolvLineSize = 160;
constexpr const char *kDefaultDevice = "eth0";
constexpr const char *kOtherDevice = "ppp0";

// The wanted name-server token, copied to token (kResolvLineSize bytes);
// false when the file has no such line or the wanted line has no token.
bool findNameServer(int occurrence, char *token)
{
    fdio::UniqueFile resolv = fdio::openFile(kResolvPath, "re");
    if (!resolv) {
        // A unit without name servers has no resolver file: no news.
        if (errno != ENOENT) {
            COM_LOG_FAILED_CALL(nullptr, "fopen(%s) : %s\n", kResolvPath);
        }
        return false;
    }
    char line[kResolvLineSize];
    int seen = 0;
    while (fgets(line, sizeof line, resolv.get()) != nullptr) {
        const char *match = net::findNameServer(line);
        if (match == nullptr || ++seen < occurrence) {
            continue;
        }
        const char *found = net::nameServerToken(line + (match - line));
        if (found == nullptr) {
            return false;
        }
        snprintf(token, kResolvLineSize, "%s", found);
        return true;
    }
    return false;
}

} // namespace

const char *COM_ChooseNetDevice(const char *dev)
{
    if (dev == nullptr) {
        return kDefaultDevice;
    }
    if (strcmp(dev, "auto") != 0) {
        return dev;
    }
    fdio::UniqueFile interfaces = fdio::openFile(kInterfacesPath, "re");
    if (!interfaces) {
        COM_LOG_FAILED_CALL(nullptr, "fopen(%s) error : %s\n", kInterfacesPath);
        return kDefaultDevice;
    }
    char line[kInterfacesLineSize];
    while (fgets(line, sizeof line, interfaces.get()) != nullptr) {
        if (net::bringsUpOther(line)) {
            return kOtherDevice;
        }
    }
    return kDefaultDevice;
}

int COM_GetDNSServer(int flag, const char *dev, void *out)
{
    const net::FlagInfo *info = net::flagOf(flag, net::Family::Dns);
    if (info == nullptr || out == nullptr) {
        return -1;
    }
    char token[kResolvLineSize];
    if (!findNameServer(info->first, token)) {
        net::writeAddressFallback(info->form, out);
        return -1;
    }
    if (info->form == net::Form::Text) {
        // The token as the file writes it, cut to the text form's buffer.
        auto *text = static_cast<char *>(out);
        const size_t n = strnlen(token, net::kAddrTextSize - 1);
        memcpy(text, token, n);
        text[n] = '\0';
        return 0;
    }
    // A token that is no address counts as 0.0.0.0.
    struct in_addr addr {};
    inet_aton(token, &addr);
    net::writeAddress(info->form, addr.s_addr, out);
    return 0;
}
