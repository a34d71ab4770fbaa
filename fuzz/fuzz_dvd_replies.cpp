// The DVD and BD readings over a drive that answers every command with the
// fuzzer's bytes (after three bytes that choose the disc record): the
// two-step reads with any announced length, the physical format, the table of
// contents, the disc, track and format capacity replies of a DVD or BD.
#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <scsi/sg.h>
#include <unistd.h>

#include "DEV.h"

namespace {
const uint8_t *gReply = nullptr;
size_t gReplySize = 0;
} // namespace

// The library's SG_IO, linked in place of ioctl (-Wl,--wrap=ioctl).
extern "C" int __wrap_ioctl(int, unsigned long request, ...)
{
    va_list args;
    va_start(args, request);
    void *arg = va_arg(args, void *);
    va_end(args);
    if (request == SG_GET_VERSION_NUM) {
        *static_cast<int *>(arg) = 30536;
        return 0;
    }
    if (request != SG_IO) {
        errno = EINVAL;
        return -1;
    }
    auto *hdr = static_cast<sg_io_hdr_t *>(arg);
    const size_t n = std::min<size_t>(hdr->dxfer_len, gReplySize);
    if (hdr->dxferp != nullptr && n > 0) {
        memcpy(hdr->dxferp, gReply, n);
    }
    hdr->resid = static_cast<int>(hdr->dxfer_len - n);
    hdr->info = SG_INFO_OK;
    hdr->status = hdr->masked_status = hdr->host_status = hdr->driver_status = 0;
    hdr->sb_len_wr = 0;
    return 0;
}

// The library's printed tables and logs go to /dev/null: libFuzzer reports on
// standard error.
extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    const int null = open("/dev/null", O_WRONLY);
    if (null >= 0) {
        dup2(null, STDOUT_FILENO);
        close(null);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 3) {
        return 0;
    }
    gReply = data + 3;
    gReplySize = size - 3;
    DiscInfo d{};
    d.type1 = data[0] % 8;
    d.type2 = data[1] % 5;
    d.type3 = data[1] / 5 % 3;
    d.appendable = data[2] % 4;
    d.last_track = data[2] / 4;
    const DiscInfo start = d;
    Dev_ReadDvdStruct("f", -1, &d);
    Dev_ReadDvdRToc("f", -1, &d);
    d = start;
    Dev_GetDvdInfo("f", -1, &d);
    d = start;
    Dev_GetBDInfo("f", -1, &d);
    return 0;
}
