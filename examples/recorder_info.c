/*
 * recorder_info: what a recorder program asks the module library at start-up.
 * It says who the unit is, resolves the name of a server and lists the
 * storage devices, one step after the other; a failed step is reported and
 * the next one runs.
 *
 * Built against an installed library only:
 *     cc recorder_info.c $(pkg-config --cflags --libs dvrmodules) -o recorder_info
 * or with CMake through find_package(DVRModules) (see CMakeLists.txt here).
 *
 *     recorder_info [name]     name to resolve, 127.0.0.1 by default (a dotted
 *                              address is given back without a query)
 */
#include <arpa/inet.h>
#include <stdio.h>
#include <string.h>

#include "COMMON.h"
#include "DEV.h"
#include "DNS.h"

/* The unit: who it is and how it sits on the network, from the /etc files and
 * the interface the library chooses; a member that can't be read holds its
 * fallback text, so the record always prints. */
static int show_unit(const char *unused)
{
    COM_UNIT_INFO unit;
    int result;

    (void)unused;
    memset(&unit, 0, sizeof unit);
    result = COM_GetUnitInfo(&unit, "auto");
    printf("unit: host %s, model %s, ip %s on %s, mac %s\n", unit.name, unit.model, unit.ip,
           unit.dev, unit.mac);
    return result;
}

/* A name lookup, as a program does before it talks to a server. */
static int show_server(const char *name)
{
    DnsRecord records[DNS_MAX_RECORDS];
    int i;

    memset(records, 0, sizeof records);
    if (DNS_GetA(name, records) != 0) {
        printf("dns: %s not resolved\n", name);
        return -1;
    }
    for (i = 0; i < DNS_MAX_RECORDS; i++) {
        struct in_addr addr;
        if (!records[i].valid) {
            continue;
        }
        addr.s_addr = records[i].addr; /* network byte order already */
        printf("dns: %s -> %s\n", name, inet_ntoa(addr));
    }
    return 0;
}

/* The storage devices: the SCSI generic nodes and the drives behind them. */
static int show_devices(const char *unused)
{
    SgMapEntry map[SG_MAP_SIZE];
    int ready;
    int i;

    (void)unused;
    memset(map, 0, sizeof map);
    ready = Dev_BuildSgMap(map);
    for (i = 0; i < SG_MAP_SIZE; i++) {
        if (map[i].bus >= 0) {
            printf("device: %s at %d:%d:%d:%d%s\n", map[i].name, map[i].bus, map[i].channel,
                   map[i].id, map[i].lun, map[i].ready ? ", ready" : "");
        }
    }
    printf("devices: %d ready\n", ready < 0 ? 0 : ready);
    return ready < 0 ? -1 : 0;
}

struct step {
    const char *name;
    int (*run)(const char *arg);
};

static const struct step steps[] = {
    {"unit", show_unit},
    {"server", show_server},
    {"devices", show_devices},
};

int main(int argc, char **argv)
{
    const char *name = argc > 1 ? argv[1] : "127.0.0.1";
    size_t i;

    for (i = 0; i < sizeof steps / sizeof steps[0]; i++) {
        if (steps[i].run(name) != 0) {
            printf("%s: step failed\n", steps[i].name);
        }
    }
    return 0;
}
