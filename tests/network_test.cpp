// Host names and addresses. The look-ups run in namespaces of their own: with a hosts file that the
// test wrote, with nothing else to ask, and with no network.
#include "cmnnetwork.h"
#include "platform_network.h"
#include "processstate.h"
#include "scratch.h"

#include <dlfcn.h>
#include <netdb.h>

#include <atomic>

using namespace tarnix_cmn_4_4;

static std::atomic<int> g_LookUps{0};

// In front of the system's call of that name: counts, and gives an answer without addresses, which
// no hosts file can cause.
extern "C" __attribute__((visibility("default"))) int gethostbyname2_r(const char* name, int family,
                                                                       hostent* record, char* room,
                                                                       std::size_t size,
                                                                       hostent** found, int* reason)
{
    ++g_LookUps;
    static const auto real =
        reinterpret_cast<decltype(&gethostbyname2_r)>(dlsym(RTLD_NEXT, "gethostbyname2_r"));
    if (std::strcmp(name, "empty-answer.test") != 0)
        return real(name, family, record, room, size, found, reason);
    static char* none[] = {nullptr};
    *record = {record->h_name, none, AF_INET, 4, none};
    *found = record;
    return 0;
}

namespace
{

const std::string kLongName = std::string(300, 'n') + ".test";

// The empty text, or what failed.
std::string enterOwnNetwork()
{
    const Scratch scratch;
    scratch.write("hosts", "10.9.8.9 " + kLongName + "\n10.9.8.7 Www.Example.Test www\n" +
                               "10.9.8.8 second.test\nfd00::1 six.test\n10.9.8.8 shared.test\n" +
                               "10.9.8.10 Tarnix-Box.Test Tarnix-Box\n");
    scratch.write("order", "hosts: files\n");
    const std::string missing = enterNamespaces(
        {{scratch.path("hosts"), "/etc/hosts"}, {scratch.path("order"), "/etc/nsswitch.conf"}},
        CLONE_NEWNET | CLONE_NEWUTS);
    return missing.empty() && sethostname("Tarnix-Box", 10) != 0 ? "host name" : missing;
}

// What the three look-ups of a name or an address leave of an output that was "-".
std::string lookedUp(const std::string& text)
{
    std::string all;
    for (const auto call :
         {&CCmnNetwork::getHostbyName, &CCmnNetwork::getHostbyAddr,
          static_cast<int (*)(const char*, std::string&)>(&CCmnNetwork::getFQDN)}) {
        std::string out = "-";
        const int code = call(text.c_str(), out);
        all += std::to_string(code) + " " + out + "|";
    }
    return all;
}

std::string shown(const CCmnHostInfo& host)
{
    return host.hostName + "|" + host.ipAddress + "|" + host.fqdn;
}

TEST(Network, AnswersWithoutALookUp)
{
    for (const char* text : {"1.2.3.4", "255.255.255.255", "01.002.0003.00004", ".1..2.3.4."})
        EXPECT_TRUE(CCmnNetwork::validateIPAddress(text)) << text;
    for (const char* text : {"256.1.1.1", "1.2.3", "1.2.3.4.5", "1.2.3.x", "1.2.3.-4", "",
                             "1.2.3.4294967297", "1.2.3.99999999999999999999"})
        EXPECT_FALSE(CCmnNetwork::validateIPAddress(text)) << text;

    const CCmnHostInfo host{"Www", "10.0.0.1", "www.test"};
    for (const CCmnHostInfo& other :
         {CCmnHostInfo{"other", "10.0.0.1", ""}, {"wWW", "10.0.0.2", "x"}, {"", "", "WWW.Test"}})
        EXPECT_TRUE(CCmnNetwork::compare(other, host)) << shown(other);
    EXPECT_FALSE(CCmnNetwork::compare({"10.0.0.1", "www", "Www"}, host));
    EXPECT_FALSE(CCmnNetwork::compare(CCmnHostInfo(), CCmnHostInfo()));
    for (const std::string name : {"10.0.0.1", "WWW", "WWW.test", "ww", ""})
        EXPECT_EQ(CCmnNetwork::compare(name, host), name.size() > 2) << name;

    g_LookUps = 0;
    EXPECT_EQ("3 -|3 |3 -|", lookedUp(""));
    std::string out = "-";
    EXPECT_EQ(3, CCmnNetwork::getFQDN(nullptr, out));
    EXPECT_EQ(3, CCmnNetwork::getFQDN("3com.test", out));
    EXPECT_EQ("-", out);
    EXPECT_EQ(3, CCmnNetwork::getHostbyAddr("255.255.255.255", out));
    EXPECT_EQ("255.255.255.255", out);
    EXPECT_EQ(0, g_LookUps);
}

TEST(Network, LooksUpInTheHostsFile)
{
    const std::string missing = enterOwnNetwork();
    if (mustSkip(missing))
        GTEST_SKIP() << "needs root for namespaces: " << missing;

    for (const std::string& name :
         {std::string("six.test"), std::string("empty-answer.test"), std::string(300, 'x')})
        EXPECT_EQ("3 -|3 " + name + "|3 -|", lookedUp(name));
    EXPECT_EQ("0 10.9.8.7|3 WWW|0 www.example.test|", lookedUp("WWW"));
    EXPECT_EQ("0 10.9.8.7|0 Www.Example.Test|0 www.example.test|", lookedUp("10.9.8.7"));
    EXPECT_EQ("0 10.9.8.9|3 " + kLongName + "|0 " + kLongName + "|", lookedUp(kLongName));
    EXPECT_EQ("0 10.9.8.1|3 -|3 -|", lookedUp("10.9.8.1"));
    const std::pair<const char*, const char*> resolved[] = {
        {"Www", "Www|10.9.8.7|www.example.test"},
        {"10.9.8.7", "Www.Example.Test|10.9.8.7|www.example.test"},
        {"shared.test", "shared.test|10.9.8.8|second.test"},
        {"six.test", "six.test||"}};
    std::atomic<int> wrong{0};
    onThreads(4, [&](int) {
        for (int round = 0; round < 200; ++round)
            for (const auto& [wanted, host] : resolved)
                wrong += shown(CCmnNetwork::resolve(wanted)) != host;
    });
    EXPECT_EQ(0, wrong);

    std::string fqdn;
    EXPECT_EQ(0, CCmnNetwork::getFQDN(fqdn));
    EXPECT_EQ("tarnix-box.test", fqdn);
    EXPECT_EQ("Tarnix-Box|10.9.8.10|" + fqdn, shown(CCmnNetwork::resolve()));
    wchar_t name[] = L"0123456789";
    std::uint32_t size = 9; // one too few
    EXPECT_EQ(0, GetComputerNameW(name, &size));
    EXPECT_EQ(L'0', name[0]);
}

} // namespace
