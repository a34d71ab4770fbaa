// An MX lookup at dnsmasq for a mail host that also has an IPv6 address: the
// AAAA record among the additional records makes the MX reading fail, and
// the lookup falls back to the domain's A record. Runs only in
// tests/peers/test_dns.sh, where DVR_DNS_PEERS names dnsmasq.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>

#include "DNS.h"
#include "test_support.h"

namespace {

TEST(DnsPeerMx, MailHostWithAnIpv6AddressFallsBackToA)
{
    const char *peer = getenv("DVR_DNS_PEERS");
    if (peer == nullptr) {
        GTEST_SKIP() << "runs in tests/peers/test_dns.sh";
    }
    fake::TempDir dir;
    fake::redirect("/etc/resolv.conf", dir.write("resolv.conf", "nameserver " + std::string(peer)));
    DnsRecord records[DNS_MAX_RECORDS];
    memset(records, 0, sizeof records);
    int rc = 0;
    const std::string log =
        fake::captureStdout([&] { rc = DNS_GetMX("pm@six.dvr.test", records); });
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(fake::withoutLineNumbers(log), "dns_exchange.cpp,N:DNS_GetMXviaNameServer(): MX "
                                             "record not found! Try A record.\n");
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &records[0].addr, text, sizeof text);
    EXPECT_EQ(std::string(text) + " " + std::to_string(records[0].type), "10.1.2.6 1");
    EXPECT_EQ(records[1].valid, 0);
}

} // namespace
