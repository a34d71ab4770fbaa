#include "DEV.h"
#include "com_log.h"

#include <cstdio>
#include <cstring>

// A row's fields as the table lists them, the same on the board and the host.
static_assert(offsetof(MajorEntry, name) == 12);
static_assert(sizeof(MajorEntry) == 28);

// The kernel's classic majors. Disk letters count on across the majors of one
// family: base is the disk index of a major's first disk.
extern "C" const MajorEntry gMajorTable[DEV_MAJOR_TABLE_SIZE] = {
    {1, 250, 0, "/dev/ram"},   {3, 63, 0, "/dev/hd?"},
    {8, 15, 0, "/dev/sd?"},    {9, 255, 0, "/dev/md"},
    {11, 255, 0, "/dev/scd"},  {21, 255, 0, "/dev/sg"},
    {22, 63, 2, "/dev/hd?"},   {31, 4, 0, "/dev/mtdblock"},
    {33, 63, 4, "/dev/hd?"},   {34, 63, 6, "/dev/hd?"},
    {56, 63, 8, "/dev/hd?"},   {57, 63, 10, "/dev/hd?"},
    {65, 15, 16, "/dev/sd?"},  {66, 15, 32, "/dev/sd?"},
    {67, 15, 48, "/dev/sd?"},  {68, 15, 64, "/dev/sd?"},
    {69, 15, 80, "/dev/sd?"},  {70, 15, 96, "/dev/sd?"},
    {71, 15, 112, "/dev/sd?"}, {-1, -1, -1, ""},
};

namespace {

constexpr int kLetters = 26;

// Appends with printf formatting, never past DEV_NODE_NAME_SIZE bytes.
template <typename... Args> void append(char *pName, const char *format, Args... args)
{
    const size_t used = strnlen(pName, DEV_NODE_NAME_SIZE - 1);
    snprintf(pName + used, DEV_NODE_NAME_SIZE - used, format, args...);
}

const MajorEntry *rowOf(int major)
{
    for (const MajorEntry *row = gMajorTable; row->major >= 1; ++row) {
        if (row->major == major) {
            return row;
        }
    }
    return nullptr;
}

} // namespace

void Dev_AppendDiskLetters(int index, char *pName, int carry)
{
    if (pName == nullptr) {
        return;
    }
    if (index > kLetters - 1) {
        Dev_AppendDiskLetters(index / kLetters, pName, 1);
    }
    append(pName, "%c", 'a' + index % kLetters - (carry == 1 ? 1 : 0));
}

int Dev_ConvertMajorMinor(int major, int minor, char *pName)
{
    const MajorEntry *row = rowOf(major);
    if (row == nullptr || pName == nullptr) {
        return -1;
    }
    const size_t stem = strnlen(row->name, sizeof row->name);
    const bool lettered = memchr(row->name, '?', stem) != nullptr;
    snprintf(pName, DEV_NODE_NAME_SIZE, "%.*s", static_cast<int>(lettered ? stem - 1 : stem),
             row->name);
    if (!lettered) {
        if (minor > row->max_minor) {
            COM_LOG(__func__, "invalid (major, minor) = (%d, %d)\n", major, minor);
            return 1;
        }
        append(pName, "%d", minor);
        return 0;
    }
    // A disk takes max_minor + 1 minors; the remainder is the partition.
    const int perDisk = row->max_minor + 1;
    Dev_AppendDiskLetters(minor / perDisk + row->base, pName, 0);
    if (minor % perDisk != 0) {
        append(pName, "%d", minor % perDisk);
    }
    return 0;
}
