// A line of /proc/partitions and a device name, as Dev_IsInProcPartitions
// compares them: the first line of the input is the name, the rest the line.
#include <cstdint>
#include <string>

#include "proc_partitions.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string all(reinterpret_cast<const char *>(data), size);
    const size_t cut = all.find('\n');
    const std::string name = all.substr(0, cut == std::string::npos ? 0 : cut);
    const std::string line = cut == std::string::npos ? all : all.substr(cut + 1);
    dev::partitionLineNames(line.c_str(), name.c_str());
    return 0;
}
