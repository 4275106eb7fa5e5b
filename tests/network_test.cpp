// Host names and addresses. The lookups run in their own namespaces: with a hosts file of the test
// as the only source, and without a network.
#include "cmnnetwork.h"
#include "platform.h"
#include "platform_network.h"
#include "support/fixture.h"
#include "support/repeat.h"
#include "support/scratchdirectory.h"

#include <algorithm>

using namespace tarnix_cmn_4_4;

static std::string shown(const CCmnHostInfo& host)
{
    return host.hostName + "|" + host.ipAddress + "|" + host.fqdn;
}

TEST(Network, AnswersWithoutALookup)
{
    for (const char* text : {"1.2.3.4", "255.255.255.255", "01.002.0003.00004", ".1..2.3.4."})
        EXPECT_TRUE(CCmnNetwork::validateIPAddress(text)) << text;
    for (const char* text : {"256.1.1.1", "1.2.3", "1.2.3.4.5", "1.2.3.x", "1.2.3.4294967297"})
        EXPECT_FALSE(CCmnNetwork::validateIPAddress(text)) << text;

    const CCmnHostInfo host{"Www", "10.0.0.1", "www.test"};
    for (const CCmnHostInfo& other :
         {CCmnHostInfo{"other", "10.0.0.1", ""}, {"wWW", "10.0.0.2", "x"}, {"", "", "WWW.Test"}})
        EXPECT_TRUE(CCmnNetwork::compare(other, host)) << shown(other);
    EXPECT_FALSE(CCmnNetwork::compare({"10.0.0.1", "www", "Www"}, host));
    EXPECT_FALSE(CCmnNetwork::compare(CCmnHostInfo(), CCmnHostInfo()));
    for (const std::string name : {"10.0.0.1", "WWW", "WWW.test", "ww", ""})
        EXPECT_EQ(CCmnNetwork::compare(name, host), name.size() > 2) << name;

    std::string out = "-";
    EXPECT_EQ(3, CCmnNetwork::getHostbyName("", out));
    for (const char* name : {"", "3com.test", static_cast<const char*>(nullptr)})
        EXPECT_EQ(3, CCmnNetwork::getFQDN(name, out));
    // inet_addr would accept those with a blank.
    for (const std::string text : {"www", "10.0.0.1 www", "10.0.0.1\n"}) {
        EXPECT_EQ(3, CCmnNetwork::getHostbyName(text.c_str(), out)) << text;
        EXPECT_EQ(3, CCmnNetwork::getHostbyAddr(text.c_str(), out)) << text;
        EXPECT_EQ(text, out);
    }
}

TEST(Network, LooksUpInTheHostsFile)
{
    const std::string longName = std::string(1000, 'n') + ".test"; // does not fit the first buffer
    const ScratchDirectory scratch;
    scratch.write("hosts", "10.9.8.9 " + longName + "\n10.9.8.7 Www.Example.Test www\n" +
                               "fd00::1 six.test\nfd00::2 both.test\n10.9.8.6 both.test\n10.9.8.10 "
                               "Tarnix-Box.Test Tarnix-Box\n");
    scratch.write("order", "hosts: files\n");
    const std::string missing = enterNamespaces(
        {{scratch.path("hosts"), "/etc/hosts"}, {scratch.path("order"), "/etc/nsswitch.conf"}},
        CLONE_NEWNET | CLONE_NEWUTS);
    if (mustSkip(missing))
        GTEST_SKIP() << missing;
    EXPECT_EQ(0, sethostname("Tarnix-Box", 10));

    wchar_t name[11];
    DWORD room = 9; // the size does not count the terminator
    EXPECT_EQ(0, GetComputerNameW(name, &room));
    room = 10;
    EXPECT_TRUE(GetComputerNameW(name, &room) != 0 && std::wstring(name) == L"Tarnix-Box");

    std::string out = "-";
    EXPECT_EQ(3, CCmnNetwork::getFQDN("10.9.8.1", out));
    EXPECT_EQ("-", out);
    EXPECT_EQ(0, CCmnNetwork::getHostbyName("10.9.8.1", out));
    EXPECT_EQ("10.9.8.1", out);
    EXPECT_EQ(0, CCmnNetwork::getFQDN(longName.c_str(), out));
    EXPECT_EQ(longName, out);
    EXPECT_EQ(0, CCmnNetwork::getFQDN(out));
    EXPECT_EQ("tarnix-box.test", out);
    EXPECT_EQ("Tarnix-Box|10.9.8.10|tarnix-box.test", shown(CCmnNetwork::resolve()));
    using Addresses = std::vector<std::string>;
    const struct {
        const char* name;
        Addresses ipv4, ipv6;
    } hosts[] = {{"six.test", {"-"}, {"fd00::1"}},
                 {"both.test", {"10.9.8.6"}, {"fd00::2"}},
                 {"127.0.0.1", {"127.0.0.1"}, {"-"}},
                 {"0:0::1", {"-"}, {"::1"}},
                 {"10.9.8.1 both.test", {"-"}, {"-"}},
                 {"", {"-"}, {"-"}},
                 {nullptr, {"-"}, {"-"}}};
    for (const auto& host : hosts) {
        Addresses all{"-"}, ipv4{"-"}, ipv6{"-"}, parts;
        const int code = CCmnNetwork::getAddresses(host.name, all);
        EXPECT_EQ(host.ipv4[0] == "-", CCmnNetwork::getIPv4Addresses(host.name, ipv4) == 3);
        EXPECT_EQ(host.ipv6[0] == "-", CCmnNetwork::getIPv6Addresses(host.name, ipv6) == 3);
        EXPECT_TRUE(ipv4 == host.ipv4 && ipv6 == host.ipv6) << (host.name ? host.name : "null");
        for (const Addresses& some : {ipv4, ipv6})
            if (some[0] != "-")
                parts.insert(parts.end(), some.begin(), some.end());
        EXPECT_EQ(parts.empty() ? 3 : 0, code);
        EXPECT_TRUE(std::is_permutation(all.begin(), all.end(), parts.begin(), parts.end()) ||
                    (parts.empty() && all == Addresses{"-"}));
    }
    runOnThreads(100, [](int) {
        for (const auto& [wanted, host] :
             {std::pair("Www", "Www|10.9.8.7|www.example.test"),
              std::pair("10.9.8.7", "Www.Example.Test|10.9.8.7|www.example.test"),
              std::pair("six.test", "six.test||")})
            EXPECT_EQ(host, shown(CCmnNetwork::resolve(wanted)));
    });
}
