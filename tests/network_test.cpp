// Host names and addresses. The look-ups run in namespaces of their own: with a hosts file that the
// test wrote, with nothing else to ask, and with no network.
#include "cmnnetwork.h"
#include "platform_network.h"
#include "scratch.h"

#include <dlfcn.h>
#include <netdb.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

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

// Of this process, and for good. The empty text, or what failed.
std::string enterNamespaces()
{
    const Scratch scratch;
    scratch.write("hosts", "10.9.8.7 Www.Example.Test www\n10.9.8.8 second.test\n"
                           "fd00::1 six.test\n10.9.8.10 Tarnix-Box.Test Tarnix-Box\n"
                           "10.9.8.8 shared.test\n10.9.8.9 " +
                               kLongName + " long\n");
    scratch.write("order", "hosts: files\n");
    const auto bind = [&scratch](const char* file, const char* target) {
        return mount(scratch.path(file).c_str(), target, nullptr, MS_BIND, nullptr);
    };
    if (unshare(CLONE_NEWNS | CLONE_NEWNET | CLONE_NEWUTS) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        bind("hosts", "/etc/hosts") != 0 || bind("order", "/etc/nsswitch.conf") != 0 ||
        sethostname("Tarnix-Box", 10) != 0)
        return std::strerror(errno);
    return "";
}

class HostsFile : public ::testing::Test
{
protected:
    void SetUp() override
    {
        static const std::string missing = enterNamespaces();
        const char* const required = std::getenv("TARNIX_REQUIRE_ROOT_TESTS");
        if (!missing.empty() && required && std::strcmp(required, "1") == 0)
            FAIL() << "no namespaces: " << missing;
        if (!missing.empty())
            GTEST_SKIP() << "needs root for namespaces: " << missing;
    }
};

std::string shown(const CCmnHostInfo& host)
{
    return host.hostName + "|" + host.ipAddress + "|" + host.fqdn;
}

using Call = int (*)(const char*, std::string&);
constexpr Call kAddress = &CCmnNetwork::getHostbyName;
constexpr Call kName = &CCmnNetwork::getHostbyAddr;
constexpr Call kFqdn = &CCmnNetwork::getFQDN;

// The code, and the output, which was "-" before.
std::string lookedUp(Call call, const std::string& text)
{
    std::string out = "-";
    const int code = call(text.c_str(), out);
    return std::to_string(code) + " " + out;
}

TEST(Network, ValidatesAddresses)
{
    for (const char* text :
         {"1.2.3.4", "0.0.0.0", "255.255.255.255", "01.002.0003.00004", "1..2.3.4", ".1.2.3.4."})
        EXPECT_TRUE(CCmnNetwork::validateIPAddress(text)) << text;
    for (const char* text : {"256.1.1.1", "1.2.3", "1.2.3.4.5", "1.2.3.x", "1.2.3.-4", "",
                             "1.2.3.4294967297", "1.2.3.99999999999999999999"})
        EXPECT_FALSE(CCmnNetwork::validateIPAddress(text)) << text;
}

TEST(Network, ComparesByAnyField)
{
    const CCmnHostInfo host{"Www", "10.0.0.1", "www.test"};
    EXPECT_TRUE(CCmnNetwork::compare({"other", "10.0.0.1", ""}, host));
    EXPECT_TRUE(CCmnNetwork::compare({"wWW", "10.0.0.2", "x"}, host));
    EXPECT_TRUE(CCmnNetwork::compare({"", "", "WWW.Test"}, host));
    EXPECT_FALSE(CCmnNetwork::compare({"10.0.0.1", "www", "Www"}, host));
    EXPECT_FALSE(CCmnNetwork::compare(CCmnHostInfo(), CCmnHostInfo()));
    for (const std::string name : {"10.0.0.1", "WWW", "WWW.test"})
        EXPECT_TRUE(CCmnNetwork::compare(name, host)) << name;
    for (const std::string name : {"ww", ""})
        EXPECT_FALSE(CCmnNetwork::compare(name, {"Www", "", ""})) << name;
}

TEST(Network, AnswersWithoutALookUp)
{
    g_LookUps = 0;
    std::string out = "-";
    EXPECT_EQ(3, CCmnNetwork::getFQDN(nullptr, out));
    EXPECT_EQ("-", out);
    EXPECT_EQ("3 -", lookedUp(kFqdn, ""));
    EXPECT_EQ("3 -", lookedUp(kFqdn, "3com.test"));
    EXPECT_EQ("3 -", lookedUp(kAddress, ""));
    EXPECT_EQ("0 10.1.2.3", lookedUp(kAddress, "10.1.2.3"));
    EXPECT_EQ("3 nonsense", lookedUp(kName, "nonsense"));
    EXPECT_EQ("3 255.255.255.255", lookedUp(kName, "255.255.255.255"));
    EXPECT_EQ("||", shown(CCmnNetwork::resolve("")));
    EXPECT_EQ(0, g_LookUps);
}

TEST_F(HostsFile, LooksUp)
{
    for (const std::string name : {"six.test", "nobody.test", "empty-answer.test"})
        EXPECT_EQ("3 -", lookedUp(kAddress, name)) << name;
    EXPECT_EQ("3 -", lookedUp(kAddress, std::string(300, 'x')));
    EXPECT_EQ("0 10.9.8.7", lookedUp(kAddress, "www"));
    EXPECT_EQ("0 10.9.8.9", lookedUp(kAddress, kLongName));
    EXPECT_EQ("3 -", lookedUp(kName, "10.9.8.1"));
    EXPECT_EQ("0 Www.Example.Test", lookedUp(kName, "10.9.8.7"));
    EXPECT_EQ("0 " + kLongName, lookedUp(kName, "10.9.8.9"));
    EXPECT_EQ("3 -", lookedUp(kFqdn, "nobody.test"));
    EXPECT_EQ("3 -", lookedUp(kFqdn, "10.9.8.1"));
    EXPECT_EQ("0 www.example.test", lookedUp(kFqdn, "WWW"));
    EXPECT_EQ("0 tarnix-box.test", lookedUp(kFqdn, "10.9.8.10"));
    const std::pair<const char*, const char*> resolved[] = {
        {"Www", "Www|10.9.8.7|www.example.test"},
        {"10.9.8.7", "Www.Example.Test|10.9.8.7|www.example.test"},
        {"shared.test", "shared.test|10.9.8.8|second.test"},
        {"six.test", "six.test||"},
        {"10.9.8.1", "|10.9.8.1|"},
    };
    for (const auto& [wanted, host] : resolved)
        EXPECT_EQ(host, shown(CCmnNetwork::resolve(wanted)));
}

TEST_F(HostsFile, KnowsThisMachine)
{
    std::string fqdn;
    EXPECT_EQ(0, CCmnNetwork::getFQDN(fqdn));
    EXPECT_EQ("tarnix-box.test", fqdn);
    EXPECT_EQ("Tarnix-Box|10.9.8.10|tarnix-box.test", shown(CCmnNetwork::resolve()));

    wchar_t name[] = L"0123456789";
    std::uint32_t size = 9; // one too few
    EXPECT_EQ(0, GetComputerNameW(name, &size));
    EXPECT_EQ(L'0', name[0]);
}

TEST_F(HostsFile, ManyThreadsAtOnce)
{
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (const char* name : {"www", "second.test", "long", "tarnix-box"}) {
        threads.emplace_back([&wrong, name, expected = shown(CCmnNetwork::resolve(name))] {
            for (int round = 0; round < 200; ++round)
                wrong += shown(CCmnNetwork::resolve(name)) != expected;
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(0, wrong);
}

} // namespace
