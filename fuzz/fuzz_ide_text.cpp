// The readers of /proc/ide text: any bytes as the digit buffer of an identify
// or smart_values file, in a block of exactly their size. The identify texts
// go into buffers of exactly their documented sizes.
#include <cstdint>
#include <cstring>
#include <vector>

#include "DEV.h"
#include "ide_text.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1) {
        return 0;
    }
    // The first byte is the attribute looked for; the rest the digits.
    const std::vector<char> digits(data + 1, data + size);
    const int count = static_cast<int>(digits.size());
    char sn[DEV_SN_SIZE], fw[DEV_FW_REV_SIZE], model[DEV_ATA_MODEL_SIZE];
    if (dev::identifyTexts(digits.data(), count, sn, fw, model) &&
        (strlen(sn) >= sizeof sn || strlen(model) >= sizeof model)) {
        __builtin_trap();
    }
    int8_t value = 0;
    dev::smartAttribute(digits.data(), count, data[0], value);
    return 0;
}
