// Logical serial ports resolved from recorded USB serial driver tables; the
// adapter's node is made in the test's own /dev.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "COMMON.h"
#include "test_support.h"

namespace {

const char *const kTable = "usbserinfo:1.0 driver:2.0\n"
                           "0: module:pl2303 name:\"pl2303\" vendor:067b product:2303 num_ports:1 "
                           "port:0 path:usb-ohci.1-4\n"
                           "1: module:ftdi_sio name:\"FTDI\" vendor:0403 product:6001 num_ports:1 "
                           "port:0 path:usb-ehci.0-3\n"
                           "2: module:pl2303 name:\"pl2303\" vendor:067b product:2303 num_ports:1 "
                           "port:0 path:usb-ehci.1-1\n"
                           "3: module:pl2303 name:\"pl2303\" vendor:067b product:2303 num_ports:1 "
                           "port:0 path:usb-ehci.1-2\n";

struct PortCase {
    int port;
    int result;
    const char *name; // expected out buffer, or null for untouched
    const char *stoppedAt;
};

class SerialPort : public testing::TestWithParam<PortCase> {
protected:
    void SetUp() override
    {
        fake::redirect("/proc/tty/driver", dir.file("driver"));
        fake::redirect("/dev/ttyUSB1", dir.file("ttyUSB1"));
        fake::redirect("/dev/ttyUSB2", dir.file("ttyUSB2"));
        dir.write("driver/usbserial", kTable);
    }
    fake::TempDir dir;
};

TEST_P(SerialPort, ResolvesTheAdapterInTheSocket)
{
    const PortCase &c = GetParam();
    char name[COM_SERIAL_PATH_SIZE] = "untouched";
    const std::string log =
        fake::logOf(([&] { EXPECT_EQ(COM_GetSerialPort(c.port, name), c.result); }));
    EXPECT_STREQ(name, c.name != nullptr ? c.name : "untouched");
    const std::string last =
        "serial_port.cpp,N:COM_GetSerialPort(): path[" + std::to_string(c.port) + "] = [" +
        c.stoppedAt + "], (result, pName) = (" + std::to_string(c.result) + ", " + name + ")\n";
    ASSERT_GE(log.size(), last.size());
    EXPECT_EQ(log.substr(log.size() - last.size()), last) << log;
}

INSTANTIATE_TEST_SUITE_P(
    Ports, SerialPort,
    testing::Values(PortCase{0, -1, nullptr, "---"}, PortCase{1, 0, "/dev/ttyTX0", "---"},
                    PortCase{2, 0, "/dev/ttyUSB1", "0-3"}, // first line with any of its tails
                    PortCase{3, 0, "/dev/ttyUSB2", "1-1"}, PortCase{4, -1, nullptr, "(null)"}));

TEST_F(SerialPort, MakesTheCharacterNode)
{
    char name[COM_SERIAL_PATH_SIZE] = {};
    fake::captureStdout([&] { EXPECT_EQ(COM_GetSerialPort(3, name), 0); });
    struct stat st {};
    ASSERT_EQ(stat(dir.file("ttyUSB2").c_str(), &st), 0);
    EXPECT_TRUE(S_ISCHR(st.st_mode));
    EXPECT_EQ(st.st_rdev, makedev(188, 2));

    // Something already there stays as it is.
    dir.write("ttyUSB1", "plain");
    fake::captureStdout([&] { EXPECT_EQ(COM_GetSerialPort(2, name), 0); });
    EXPECT_EQ(fake::readFile(dir.file("ttyUSB1")), "plain");
}

TEST_F(SerialPort, ComparisonsAreTracedAndMissingTablesReported)
{
    char name[COM_SERIAL_PATH_SIZE] = {};
    std::string log = fake::logOf(([&] { COM_GetSerialPort(4, name); }));
    EXPECT_NE(log.find("COM_GetSerialPort(): [4][0][0] - [0] <=> [0-1]\n"), std::string::npos)
        << log;
    EXPECT_NE(log.find("COM_GetSerialPort(): [4][0][0] - [1-2] <=> [0-1]\n"), std::string::npos)
        << log;

    fake::redirect("/proc/tty/driver", dir.file("none"));
    log = fake::logOf(([&] { EXPECT_EQ(COM_GetSerialPort(2, name), -1); }));
    EXPECT_EQ(log.substr(0, log.find('\n') + 1),
              "serial_port.cpp,N:COM_GetSerialPort(): open(/proc/tty/driver/usb-serial, "
              "/proc/tty/driver/usbserial) failed! : No such file or directory\n");
    log = fake::logOf(([&] { EXPECT_EQ(COM_GetSerialPort(5, name), -1); }));
    EXPECT_EQ(log, "serial_port.cpp,N:COM_GetSerialPort(): Un-support idx = 5\n");
}

} // namespace
