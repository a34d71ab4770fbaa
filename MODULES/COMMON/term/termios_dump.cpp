#include "COMMON.h"
#include "com_log.h"

#include <cstdio>
#include <termios.h>

// The flag tables carry the platform's own constants, so the numbers follow
// the target the library is built for.
#define FLAG(name)                         \
    {                                      \
        static_cast<uint32_t>(name), #name \
    }

const COM_FLAG_NAME gTermIFlagTable[] = {FLAG(IGNBRK), FLAG(BRKINT),  FLAG(IGNPAR), FLAG(PARMRK),
                                         FLAG(INPCK),  FLAG(ISTRIP),  FLAG(INLCR),  FLAG(IGNCR),
                                         FLAG(ICRNL),  FLAG(IUCLC),   FLAG(IXON),   FLAG(IXANY),
                                         FLAG(IXOFF),  FLAG(IMAXBEL), {0, ""}};

const COM_FLAG_NAME gTermOFlagTable[] = {FLAG(OPOST), FLAG(OLCUC),  FLAG(ONLCR),  FLAG(OCRNL),
                                         FLAG(ONOCR), FLAG(ONLRET), FLAG(OFILL),  FLAG(OFDEL),
                                         FLAG(NLDLY), FLAG(CRDLY),  FLAG(TABDLY), FLAG(BSDLY),
                                         FLAG(VTDLY), FLAG(FFDLY),  {0, ""}};

const COM_FLAG_NAME gTermCFlagTable[] = {
    FLAG(B0),      FLAG(B50),    FLAG(B75),    FLAG(B110),   FLAG(B134),   FLAG(B150),
    FLAG(B200),    FLAG(B300),   FLAG(B600),   FLAG(B1200),  FLAG(B1800),  FLAG(B2400),
    FLAG(B4800),   FLAG(B9600),  FLAG(B19200), FLAG(B38400), FLAG(B57600), FLAG(B115200),
    FLAG(B230400), FLAG(CSIZE),  FLAG(CSTOPB), FLAG(CREAD),  FLAG(PARENB), FLAG(PARODD),
    FLAG(HUPCL),   FLAG(CLOCAL), {0, ""}};

const COM_FLAG_NAME gTermLFlagTable[] = {FLAG(ISIG),   FLAG(ICANON), FLAG(XCASE),  FLAG(ECHO),
                                         FLAG(ECHOE),  FLAG(ECHOK),  FLAG(ECHONL), FLAG(ECHOCTL),
                                         FLAG(NOFLSH), FLAG(TOSTOP), FLAG(IEXTEN), {0, ""}};

const COM_FLAG_NAME gTermCcTable[] = {
    FLAG(VINTR),    FLAG(VQUIT),   FLAG(VERASE), FLAG(VKILL), FLAG(VMIN),  FLAG(VTIME),
    FLAG(VEOL2),    FLAG(VSWTC),   FLAG(VSTART), FLAG(VSTOP), FLAG(VSUSP), FLAG(VREPRINT),
    FLAG(VDISCARD), FLAG(VWERASE), FLAG(VLNEXT), FLAG(VEOF),  FLAG(VEOL),  {0, ""}};

#undef FLAG

namespace {
// c_cc is dumped over this many slots, whatever NCCS the platform has.
constexpr int kCcSlots = 32;

const char *ccName(int index)
{
    for (const COM_FLAG_NAME *e = gTermCcTable; e->name[0] != '\0'; ++e) {
        if (e->value == static_cast<uint32_t>(index)) {
            return e->name;
        }
    }
    return "unknown";
}
} // namespace

void COM_ShowTermFlags(const char *label, uint32_t flags, const COM_FLAG_NAME *table)
{
    printf("%s = [0x%X] :", label, flags);
    for (const COM_FLAG_NAME *e = table; e != nullptr && e->name[0] != '\0'; ++e) {
        if ((flags & e->value) == e->value) {
            printf(" [%s]", e->name);
        }
    }
    printf("\n");
}

void COM_ShowTermios(const char *title, const struct termios *pTerm)
{
    COM_LOG(nullptr, "%s\n======\n", title);
    COM_ShowTermFlags(" c_iflag", pTerm->c_iflag, gTermIFlagTable);
    COM_ShowTermFlags(" c_oflag", pTerm->c_oflag, gTermOFlagTable);
    COM_ShowTermFlags(" c_cflag", pTerm->c_cflag, gTermCFlagTable);
    COM_ShowTermFlags(" c_lflag", pTerm->c_lflag, gTermLFlagTable);
    for (int i = 0; i < kCcSlots; ++i) {
        // Platforms with fewer than 32 slots show 0 past their end.
        const int value = i < NCCS ? pTerm->c_cc[i] : 0;
        printf(" [%02d/%02d] c_cc[%s] = %d\n", i, kCcSlots, ccName(i), value);
    }
    printf("======\n");
}
