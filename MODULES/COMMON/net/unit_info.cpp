// The unit record: filled from the one-line files under /etc and the network
// queries, stored back to the files, printed, and ordered by address.
#include "com_log.h"

#include <arpa/inet.h>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <unistd.h>

// Callers pass arrays of records: the layout is the same on the board (ILP32,
// big-endian) and on a 64-bit host, since every member is text but the two
// 32-bit words at the end.
static_assert(sizeof(COM_UNIT_INFO) == 264);
static_assert(offsetof(COM_UNIT_INFO, proj) == 32 && offsetof(COM_UNIT_INFO, name) == 64);
static_assert(offsetof(COM_UNIT_INFO, ip) == 96 && offsetof(COM_UNIT_INFO, trigger_port) == 112);
static_assert(offsetof(COM_UNIT_INFO, netmask) == 120 && offsetof(COM_UNIT_INFO, gateway) == 136);
static_assert(offsetof(COM_UNIT_INFO, dns) == 152 && offsetof(COM_UNIT_INFO, mac) == 168);
static_assert(offsetof(COM_UNIT_INFO, dev) == 192 && offsetof(COM_UNIT_INFO, note) == 208);
static_assert(offsetof(COM_UNIT_INFO, mtu) == 256 && offsetof(COM_UNIT_INFO, reserved) == 260);

namespace {

constexpr const char *kModelPath = "/etc/Model";
constexpr const char *kProjPath = "/etc/Proj";
constexpr const char *kNotePath = "/etc/Note";
constexpr const char *kPortPath = "/etc/Port";
constexpr const char *kHostnamePath = "/etc/hostname";
constexpr const char *kUnknown = "unknown";
constexpr int kDefaultPort = 80;
// "%d" of a port, at most 7 characters.
constexpr size_t kPortTextSize = 8;

// The first line of a one-line file in buf, or "unknown" when it has none.
int readValue(const char *path, char *buf, int size)
{
    if (buf != nullptr && size > 0) {
        buf[0] = '\0';
    }
    return COM_GetFileContent(path, buf, size);
}

} // namespace

int COM_GetUnitModel(char *buf, int size)
{
    return readValue(kModelPath, buf, size);
}

int COM_GetUnitProj(char *buf, int size)
{
    return readValue(kProjPath, buf, size);
}

int COM_GetUnitName(char *buf, int size)
{
    if (buf == nullptr || size <= 0) {
        return -1;
    }
    if (gethostname(buf, static_cast<size_t>(size)) != 0) {
        snprintf(buf, static_cast<size_t>(size), "%s", kUnknown);
        return -1;
    }
    buf[size - 1] = '\0';
    return 0;
}

int COM_GetUnitNote(char *buf, int size)
{
    readValue(kNotePath, buf, size);
    return 0;
}

int COM_GetUnitPort(char *buf, int size)
{
    const int result = readValue(kPortPath, buf, size);
    if (result != 0 && buf != nullptr && size > 0) {
        snprintf(buf, static_cast<size_t>(size), "%d", kDefaultPort);
    }
    return result;
}

int COM_SetUnitModel(const char *model)
{
    return COM_SetFileContent(kModelPath, model);
}

int COM_SetUnitProj(const char *proj)
{
    return COM_SetFileContent(kProjPath, proj);
}

int COM_SetUnitName(const char *name)
{
    if (name == nullptr) {
        return -1;
    }
    const int result = sethostname(name, strlen(name));
    if (result != 0) {
        return result;
    }
    // The running name is set; the file only keeps it for the next start.
    COM_SetFileContent(kHostnamePath, name);
    return 0;
}

int COM_SetUnitNote(const char *note)
{
    return COM_SetFileContent(kNotePath, note);
}

int COM_SetUnitPort(int port)
{
    char text[kPortTextSize];
    snprintf(text, sizeof text, "%d", port);
    return COM_SetFileContent(kPortPath, text);
}

int COM_GetUnitInfo(COM_UNIT_INFO *info, const char *dev)
{
    if (info == nullptr) {
        return -1;
    }
    const char *name = COM_ChooseNetDevice(dev);
    snprintf(info->dev, sizeof info->dev, "%s", name);
    int result = COM_GetUnitModel(info->model, sizeof info->model);
    result += COM_GetUnitProj(info->proj, sizeof info->proj);
    result += COM_GetUnitName(info->name, sizeof info->name);
    result += COM_GetNetInfo(NETINFO_IP_TEXT, name, info->ip);
    result += COM_GetUnitPort(info->trigger_port, sizeof info->trigger_port);
    result += COM_GetNetInfo(NETINFO_NETMASK_TEXT, name, info->netmask);
    result += COM_GetNetInfo(NETINFO_GATEWAY_TEXT, name, info->gateway);
    result += COM_GetNetInfo(NETINFO_DNS1_TEXT, name, info->dns);
    result += COM_GetNetInfo(NETINFO_MAC_COLON, name, info->mac);
    COM_GetUnitNote(info->note, sizeof info->note);
    result += COM_GetNetInfo(NETINFO_MTU, name, &info->mtu);
    return result;
}

int COM_SetUnitInfo(const COM_UNIT_INFO *info)
{
    if (info == nullptr) {
        return -1;
    }
    return COM_SetUnitModel(info->model) + COM_SetUnitProj(info->proj) +
           COM_SetUnitName(info->name) + COM_SetUnitNote(info->note);
}

int COM_CompareUnitIp(const COM_UNIT_INFO *first, const COM_UNIT_INFO *second)
{
    struct in_addr a {
    }, b{};
    inet_aton(first->ip, &a);
    inet_aton(second->ip, &b);
    return static_cast<int32_t>(static_cast<uint32_t>(a.s_addr) - static_cast<uint32_t>(b.s_addr));
}

void COM_ShowUnitInfo(const COM_UNIT_INFO *info)
{
    COM_LOG(nullptr, "(model, proj, name) = (%s, %s, %s)\n", info->model, info->proj, info->name);
    COM_LOG(nullptr, "(ip, trigger_port, netmask) = (%s, %s, %s)\n", info->ip, info->trigger_port,
            info->netmask);
    COM_LOG(nullptr, "(gateway, dns, mac) = (%s, %s, %s)\n", info->gateway, info->dns, info->mac);
    COM_LOG(nullptr, "(dev, note) = (%s, %s)\n", info->dev, info->note);
}

void COM_ShowAllUnitInfo(int count, const COM_UNIT_INFO *infos)
{
    for (int i = 0; i < count; ++i) {
        COM_LOG(__func__, "[%d/%d]\n", i + 1, count);
        COM_ShowUnitInfo(&infos[i]);
    }
}
