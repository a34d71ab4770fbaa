// Bringing an interface up or down through /sbin/ifconfig.
#include "com_log.h"

#include <cstdio>
#include <unistd.h>

namespace {

constexpr int kCommandSize = 256;
constexpr const char *kIfconfig = "/sbin/ifconfig";

// Only root may change interfaces: anyone else runs nothing and gets -1.
int runIfconfig(const char *dev, const char *state)
{
    if (getuid() != 0 || dev == nullptr) {
        return -1;
    }
    char command[kCommandSize];
    snprintf(command, sizeof command, "%s %s %s", kIfconfig, dev, state);
    return COM_System(command, nullptr);
}

} // namespace

int COM_NetDeviceUp(const char *dev)
{
    return runIfconfig(dev, "up");
}

int COM_NetDeviceDown(const char *dev)
{
    return runIfconfig(dev, "down");
}
