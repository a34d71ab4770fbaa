// Loading the serial driver of a USB 3G modem: the kernel's USB device list
// names a device with an interface that has no driver, the gsm_modem module
// is loaded with that device's numbers, and the port the kernel then lists
// for it becomes the caller's /dev/ttyUSB node.
#include "DEV.h"
#include "com_log.h"
#include "fd_io.h"
#include "usb_modem_text.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr char kUsbDevices[] = "/proc/bus/usb/devices";
constexpr char kPortList[] = "/proc/tty/driver/usbserial";
constexpr char kRemoveModule[] = "rmmod -f gsm_modem";
// Where the shell would look when PATH is not set (root's directories).
constexpr char kDefaultPath[] = "/sbin:/usr/sbin:/bin:/usr/bin";
constexpr size_t kProgramPathSize = 256;
constexpr useconds_t kFirstWaitUs = 200000;
constexpr useconds_t kRetryWaitUs = 100000;
constexpr long kPortListPatienceUs = 999999;

// Checks that usbfs, insmod and the module are in place.
bool requirementsMet()
{
    static constexpr struct {
        const char *path;
        const char *message;
    } kNeeds[] = {
        {kUsbDevices,
         "lstat('/proc/bus/usb/devices') failed (%d:%s)! Is usbfs mounted at /proc/bus/usb?\n"},
        {"/sbin/insmod", "lstat('/sbin/insmod') failed (%d:%s)! Install it first!\n"},
        {"/lib/modules/gsm_modem.ko",
         "lstat('/lib/modules/gsm_modem.ko') failed (%d:%s)! Install it first!\n"},
    };
    for (const auto &need : kNeeds) {
        struct stat st {};
        if (lstat(need.path, &st) != 0) {
            const int error = errno;
            COM_LOG("Dev_Insert3gModemDriver", need.message, error, strerror(error));
            return false;
        }
    }
    return true;
}

// Runs a command line as a shell would find its program: COM_System takes
// the first word as a path, so a bare name is looked up in the directories of
// PATH first. A name found nowhere is left for COM_System to report.
int runCommand(const char *command)
{
    const size_t nameLength = strcspn(command, " ");
    const char *dirs = getenv("PATH");
    dirs = dirs != nullptr ? dirs : kDefaultPath;
    while (memchr(command, '/', nameLength) == nullptr && *dirs != '\0') {
        const size_t dirLength = strcspn(dirs, ":");
        char program[kProgramPathSize];
        const int n = snprintf(program, sizeof program, "%.*s/%.*s", static_cast<int>(dirLength),
                               dirs, static_cast<int>(nameLength), command);
        if (dirLength != 0 && n > 0 && static_cast<size_t>(n) < sizeof program &&
            access(program, X_OK) == 0) {
            char line[kProgramPathSize + dev::kUsbLineSize];
            snprintf(line, sizeof line, "%s%s", program, command + nameLength);
            return COM_System(line, nullptr);
        }
        dirs += dirLength + (dirs[dirLength] == ':' ? 1 : 0);
    }
    return COM_System(command, nullptr);
}

// The port list, which the kernel makes once the module has bound the device:
// tried for about a second after the load.
fdio::UniqueFile waitForPortList()
{
    long waitedUs = kFirstWaitUs;
    for (;;) {
        fdio::UniqueFile ports = fdio::openFile(kPortList, "r");
        if (ports || waitedUs > kPortListPatienceUs) {
            return ports;
        }
        usleep(kRetryWaitUs);
        waitedUs += kRetryWaitUs;
    }
}

// The first line of the port list that names the device gives the node,
// made if it is missing. 0 when a port was found.
int takePort(FILE *ports, const dev::UsbWalk &walk, char (&line)[dev::kUsbLineSize], char *pDev)
{
    while (fgets(line, sizeof line, ports) != nullptr) {
        const int port = dev::usbSerialPort(line, walk.vendor, walk.product);
        if (port < 0 || port > dev::kMaxUsbPort) {
            continue;
        }
        snprintf(pDev, DEV_TTY_PATH_SIZE, "/dev/ttyUSB%d", port);
        struct stat st {};
        if (lstat(pDev, &st) != 0) {
            snprintf(line, sizeof line, "mknod %s c 188 %d", pDev, port);
            runCommand(line);
        }
        COM_LOG("Dev_Insert3gModemDriver", "%s is ready for %04x/%04x!\n", pDev, walk.vendor,
                walk.product);
        return 0;
    }
    return -1;
}

// Loads the module for the walk's device and waits for its port. A failed
// load leaves the device a candidate for its next driverless interface; a
// load that gives no port is taken back and ends the device's turn.
int tryDevice(dev::UsbWalk &walk, char (&line)[dev::kUsbLineSize], char *pDev)
{
    const char *const func = "Dev_Insert3gModemDriver";
    snprintf(line, sizeof line, "insmod /lib/modules/gsm_modem.ko vendor=0x%04x product=0x%04x",
             walk.vendor, walk.product);
    if (runCommand(line) != 0) {
        COM_LOG(func, "Failed to %s\n", line);
        return -1;
    }
    COM_LOG(func, "Successful to %s\n", line);
    usleep(kFirstWaitUs);
    fdio::UniqueFile ports = waitForPortList();
    if (!ports) {
        const int error = errno;
        COM_LOG(func, "Timeout to fopen('/proc/tty/driver/usbserial') (%d:%s)!\n", error,
                strerror(error));
        runCommand(kRemoveModule);
        walk.active = false;
        return -1;
    }
    const int result = takePort(ports.get(), walk, line, pDev);
    ports.reset();
    if (result != 0) {
        COM_LOG(func, "No ttyUSBx generated for %04x/%04x. Remove its driver!\n", walk.vendor,
                walk.product);
        runCommand(kRemoveModule);
        walk.active = false;
    }
    return result;
}

} // namespace

int Dev_Insert3gModemDriver(char *pDev)
{
    if (pDev == nullptr) {
        return -1;
    }
    pDev[0] = '\0';
    if (!requirementsMet()) {
        return -1;
    }
    fdio::UniqueFile devices = fdio::openFile(kUsbDevices, "r");
    if (!devices) {
        const int error = errno;
        COM_LOG(__func__, "fopen('/proc/bus/usb/devices') failed (%d:%s)!\n", error,
                strerror(error));
        return -1;
    }
    runCommand(kRemoveModule); // whatever was loaded before
    dev::UsbWalk walk;
    char line[dev::kUsbLineSize];
    int result = -1;
    while (result != 0 && fgets(line, sizeof line, devices.get()) != nullptr) {
        if (dev::usbLineWantsDriver(walk, line)) {
            result = tryDevice(walk, line, pDev);
        }
    }
    devices.reset();
    if (result != 0) {
        COM_LOG(__func__, "No valid 3G modem found!\n");
    }
    return result;
}
