// SPDX-License-Identifier: LicenseRef-Tarnix
// Host names and addresses. The lookups run in their own namespaces: with a hosts file of the test
// as the only source, and without a network.
#include "cmnnetwork.h"
#include "platform.h"
#include "support/fixture.h"
#include "support/repeat.h"
#include "support/scratchdirectory.h"

#include <algorithm>

using namespace tarnix_cmn_4_4;

namespace
{

std::string shown(const CCmnHostInfo& host)
{
    return host.hostName + "|" + host.ipAddress + "|" + host.fqdn;
}

TEST(Network, ValidAddresses)
{
    for (const char* text : {"1.2.3.4", "255.255.255.255", "01.002.0003.00004", ".1..2.3.4."})
        EXPECT_TRUE(CCmnNetwork::validateIPAddress(text)) << text;
    for (const char* text : {"256.1.1.1", "1.2.3", "1.2.3.4.5", "1.2.3.x", "1.2.3.4294967297"})
        EXPECT_FALSE(CCmnNetwork::validateIPAddress(text)) << text;
}

TEST(Network, SameHosts)
{
    const CCmnHostInfo host{"Www", "10.0.0.1", "www.test"};
    for (const CCmnHostInfo& other :
         {CCmnHostInfo{"other", "10.0.0.1", ""}, {"wWW", "10.0.0.2", "x"}, {"", "", "WWW.Test"}})
        EXPECT_TRUE(CCmnNetwork::compare(other, host)) << shown(other);
    EXPECT_FALSE(CCmnNetwork::compare({"10.0.0.1", "www", "Www"}, host));
    EXPECT_FALSE(CCmnNetwork::compare(CCmnHostInfo(), CCmnHostInfo()));
    for (const char* name : {"10.0.0.1", "WWW", "WWW.test"})
        EXPECT_TRUE(CCmnNetwork::compare(name, host)) << name;
    for (const char* name : {"ww", ""})
        EXPECT_FALSE(CCmnNetwork::compare(name, host)) << name;
}

TEST(Network, FailsWithoutALookup)
{
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

// Lookups in a hosts file of the test, on a machine that has no other source.
struct Lookups : testing::Test {
    void SetUp() override
    {
        static const std::string missing = enter();
        SKIP_IF(missing);
    }
    static std::string enter()
    {
        const ScratchDirectory scratch;
        const std::string alias = " another.name.of.this.host";
        scratch.write("hosts", "10.9.8.7 Www.Example.Test www 3com.test\nfd00::1 six.test\n"
                               "fd00::2 both.test\n10.9.8.6 both.test\n10.9.8.6 both.test\n"
                               "10.9.8.10 Tarnix-Box.Test Tarnix-Box\n10.9.8.11 large.test" +
                                   repeated(alias, 25000) + "\n10.9.8.12 huge.test" +
                                   repeated(alias, 50000) + '\n');
        scratch.write("order", "hosts: files\n");
        const std::string missing = enterNamespaces(
            {{scratch.path("hosts"), "/etc/hosts"}, {scratch.path("order"), "/etc/nsswitch.conf"}},
            CLONE_NEWNET | CLONE_NEWUTS);
        return missing.empty() && sethostname("Tarnix-Box", 10) != 0 ? "cannot set the name"
                                                                     : missing;
    }
};

TEST_F(Lookups, TheNameOfThisComputer)
{
    wchar_t name[] = L"not replaced";
    DWORD room = 9; // the size does not count the terminator
    EXPECT_EQ(0, GetComputerNameW(name, &room));
    EXPECT_STREQ(L"not replaced", name);
    for (const DWORD enough : {10U, 11U}) {
        room = enough;
        EXPECT_NE(0, GetComputerNameW(name, &room)) << enough;
        EXPECT_STREQ(L"Tarnix-Box", name) << enough;
        EXPECT_EQ(10U, room) << enough;
    }
    std::string full;
    EXPECT_EQ(0, CCmnNetwork::getFQDN(full));
    EXPECT_EQ("tarnix-box.test", full);
    EXPECT_EQ("Tarnix-Box|10.9.8.10|tarnix-box.test", shown(CCmnNetwork::resolve()));
}

using Addresses = std::vector<std::string>;

// What a lookup finds; or "-", which its output then still holds.
template <typename Out>
Out found(int (*lookUp)(const char*, Out&), const char* name)
{
    Out out{"-"};
    const int result = lookUp(name, out);
    EXPECT_EQ(result, out == Out{"-"} ? 3 : 0);
    return out;
}

TEST_F(Lookups, NamesAndAddresses)
{
    const struct {
        std::string name, fullName, address; // "-": none is found
        Addresses ipv4, ipv6, all;
    } hosts[] = {
        {"WWW", "www.example.test", "10.9.8.7", {"10.9.8.7"}, {"-"}, {"10.9.8.7"}},
        {"10.9.2055", "www.example.test", "10.9.2055", {"10.9.8.7"}, {"-"}, {"10.9.8.7"}},
        {"3com.test", "-", "10.9.8.7", {"10.9.8.7"}, {"-"}, {"10.9.8.7"}},
        {"10.9.8.1", "-", "10.9.8.1", {"10.9.8.1"}, {"-"}, {"10.9.8.1"}},
        {"nobody.test", "-", "-", {"-"}, {"-"}, {"-"}},
        {"10.9.8.1 both.test", "-", "-", {"-"}, {"-"}, {"-"}},
        {"", "-", "-", {"-"}, {"-"}, {"-"}},
        {"six.test", "-", "-", {"-"}, {"fd00::1"}, {"fd00::1"}},
        {"both.test", "both.test", "10.9.8.6", {"10.9.8.6"}, {"fd00::2"}, {"10.9.8.6", "fd00::2"}},
        {"0:0::1", "-", "-", {"-"}, {"::1"}, {"::1"}},
        // Answers that no small buffer holds; the second has more than a megabyte.
        {"large.test", "large.test", "10.9.8.11", {"10.9.8.11"}, {"-"}, {"10.9.8.11"}},
        {"huge.test", "-", "-", {"10.9.8.12"}, {"-"}, {"10.9.8.12"}},
    };
    for (const auto& host : hosts) {
        SCOPED_TRACE(host.name);
        EXPECT_EQ(host.fullName, found(CCmnNetwork::getFQDN, host.name.c_str()));
        EXPECT_EQ(host.address, found(CCmnNetwork::getHostbyName, host.name.c_str()));
        EXPECT_EQ(host.ipv4, found(CCmnNetwork::getIPv4Addresses, host.name.c_str()));
        EXPECT_EQ(host.ipv6, found(CCmnNetwork::getIPv6Addresses, host.name.c_str()));
        Addresses all = found(CCmnNetwork::getAddresses, host.name.c_str());
        std::sort(all.begin(), all.end()); // their order is the system's
        EXPECT_EQ(host.all, all);
    }
    EXPECT_EQ(Addresses{"-"}, found(CCmnNetwork::getAddresses, nullptr));
    EXPECT_EQ("Www|10.9.8.7|www.example.test", shown(CCmnNetwork::resolve("Www")));
    const std::string byAddress = shown(CCmnNetwork::resolve("10.9.8.7"));
    EXPECT_EQ("Www.Example.Test|10.9.8.7|www.example.test", byAddress);
    EXPECT_EQ("six.test||", shown(CCmnNetwork::resolve("six.test")));
}

} // namespace
