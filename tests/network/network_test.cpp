// The resolver is interposed: each test says what it knows, and no test leaves this machine.
#include "Utility/Generic/Portable/SUPOS.h"

#include "recording_manager.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <ostream>
#include <string>
#include <unistd.h>
#include <vector>

using String = sup::String<wchar_t>;

namespace {

// What the interposed functions do and saw.
struct Resolver {
    struct Answer {
        const char* address;   // IPv4 or IPv6
        const char* canonical; // may be null
    };

    bool isReal = false;
    std::string hostName = "machine";
    bool hostNameFails = false;
    bool hostNameIsUnterminated = false;
    std::vector<Answer> answers; // those of the family asked for; none is a failure
    bool numericNameFails = false;

    struct Query {
        std::string host;
        std::string service;
        int family;
        int socketType;
        int flags;
    };
    std::vector<Query> queries;
    int liveResults = 0;
};

Resolver* g_resolver = nullptr;

class NetworkTest : public testing::Test {
protected:
    NetworkTest() { g_resolver = &m_resolver; }
    ~NetworkTest() override {
        EXPECT_EQ(m_resolver.liveResults, 0);
        g_resolver = nullptr;
    }

    Resolver m_resolver;
    brimtest::ClientCodePage m_utf8{65001};
};

// One block an answer, linked.
struct OwnedInfo {
    struct addrinfo info;
    union {
        sockaddr_in v4;
        sockaddr_in6 v6;
    } socket;
};

bool makeInfo(const Resolver::Answer& answer, int family, OwnedInfo& made) {
    std::memset(&made, 0, sizeof(made));
    in_addr v4;
    in6_addr v6;
    if (::inet_pton(AF_INET, answer.address, &v4) == 1) {
        made.socket.v4.sin_family = AF_INET;
        made.socket.v4.sin_addr = v4;
        made.info.ai_addrlen = sizeof(sockaddr_in);
    } else if (::inet_pton(AF_INET6, answer.address, &v6) == 1) {
        made.socket.v6.sin6_family = AF_INET6;
        made.socket.v6.sin6_addr = v6;
        made.info.ai_addrlen = sizeof(sockaddr_in6);
    }
    made.info.ai_family = made.socket.v4.sin_family;
    made.info.ai_canonname = const_cast<char*>(answer.canonical);
    return family == AF_UNSPEC || family == made.info.ai_family;
}

template <class Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" {

int gethostname(char* name, size_t length) noexcept {
    if (g_resolver == nullptr) {
        return next<int(char*, size_t)>("gethostname")(name, length);
    }
    if (g_resolver->hostNameFails) {
        std::memset(name, 'x', length);
        errno = EFAULT;
        return -1;
    }
    if (g_resolver->hostNameIsUnterminated) {
        std::memset(name, 'h', length);
        return 0;
    }
    std::strncpy(name, g_resolver->hostName.c_str(), length);
    return 0;
}

int getaddrinfo(const char* host, const char* service, const struct addrinfo* hints,
                struct addrinfo** result) {
    if (g_resolver == nullptr || g_resolver->isReal) {
        return next<int(const char*, const char*, const struct addrinfo*, struct addrinfo**)>("getaddrinfo")(
            host, service, hints, result);
    }
    g_resolver->queries.push_back(
        {host, service != nullptr ? service : "", hints->ai_family, hints->ai_socktype, hints->ai_flags});
    struct addrinfo** tail = result;
    *result = reinterpret_cast<struct addrinfo*>(0x1); // nothing a caller may use after a failure
    int found = 0;
    for (const Resolver::Answer& answer : g_resolver->answers) {
        auto made = std::make_unique<OwnedInfo>();
        if (makeInfo(answer, hints->ai_family, *made)) {
            made->info.ai_addr = reinterpret_cast<struct sockaddr*>(&made->socket);
            *tail = &made->info;
            tail = &made.release()->info.ai_next;
            *tail = nullptr;
            ++found;
        }
    }
    g_resolver->liveResults += found > 0 ? 1 : 0;
    return found > 0 ? 0 : EAI_NONAME;
}

void freeaddrinfo(struct addrinfo* result) noexcept {
    if (g_resolver == nullptr || g_resolver->isReal) {
        next<void(struct addrinfo*)>("freeaddrinfo")(result);
        return;
    }
    --g_resolver->liveResults;
    while (result != nullptr) {
        const std::unique_ptr<OwnedInfo> owned(reinterpret_cast<OwnedInfo*>(result));
        result = result->ai_next;
    }
}

int getnameinfo(const struct sockaddr* address, socklen_t length, char* host, socklen_t hostLength,
                char* service, socklen_t serviceLength, int flags) {
    if (g_resolver != nullptr && g_resolver->numericNameFails && address->sa_family == AF_INET6) {
        return EAI_FAIL;
    }
    return next<int(const struct sockaddr*, socklen_t, char*, socklen_t, char*, socklen_t, int)>(
        "getnameinfo")(address, length, host, hostLength, service, serviceLength, flags);
}

} // extern "C"

namespace {

std::wstring wide(const String& s) { return {s.begin(), s.end()}; }

std::vector<std::wstring> addressesOf(int family, const wchar_t* host) {
    BrimStringVector list;
    list.push_back(L"kept");
    SystemUtility::GetHostIPAddresses(family, host, list);
    std::vector<std::wstring> result;
    for (const String& entry : list) {
        result.push_back(wide(entry));
    }
    return result;
}

std::vector<unsigned char> bytesOf(const MachineIP& machine) {
    std::vector<unsigned char> bytes{9, 9};
    machine.GetIP(bytes);
    return bytes;
}

using Strings = std::vector<std::wstring>;
using Bytes = std::vector<unsigned char>;

// ---- Names ------------------------------------------------------------------------------------------------

TEST_F(NetworkTest, HostNameIsTheSystems) { EXPECT_EQ(SystemUtility::GetHostName(), String(L"machine")); }

TEST_F(NetworkTest, HostNameIsTheFirstLabelOfAQualifiedOne) {
    m_resolver.hostName = "db1.example.org";
    EXPECT_EQ(SystemUtility::GetHostName(), String(L"db1"));
}

TEST_F(NetworkTest, HostNameThatIsAnAddressStaysWhole) {
    m_resolver.hostName = "10.0.0.1";
    EXPECT_EQ(SystemUtility::GetHostName(), String(L"10.0.0.1"));
}

TEST_F(NetworkTest, HostNameIsWidenedFromTheCodePage) {
    m_resolver.hostName = "m\xC3\xBCller";
    EXPECT_EQ(SystemUtility::GetHostName(), String(L"m\u00FCller"));
}

TEST_F(NetworkTest, HostNameIsEmptyWhenTheSystemFails) {
    m_resolver.hostNameFails = true;
    EXPECT_TRUE(SystemUtility::GetHostName().empty());
}

TEST_F(NetworkTest, HostNameIsTerminatedWhereTheSystemCutsIt) {
    m_resolver.hostNameIsUnterminated = true;
    EXPECT_EQ(wide(SystemUtility::GetHostName()), std::wstring(511, L'h'));
}

TEST(HostName, IsThatOfThisMachine) {
    char name[512] = {};
    ASSERT_EQ(::gethostname(name, sizeof(name) - 1), 0);
    const std::string label = std::string(name).substr(0, std::string(name).find('.'));
    const String found = SystemUtility::GetHostName();
    EXPECT_EQ(std::string(found.begin(), found.end()), label);
}

TEST_F(NetworkTest, FullyQualifiedNameIsTheFirstCanonicalOne) {
    m_resolver.hostName = "db1";
    m_resolver.answers = {{"10.0.0.1", nullptr}, {"::1", "db1.example.org"}, {"10.0.0.2", "other"}};
    EXPECT_EQ(SystemUtility::GetFullyQualifiedDomainName(), String(L"db1.example.org"));
    ASSERT_EQ(m_resolver.queries.size(), 1U);
    EXPECT_EQ(m_resolver.queries[0].host, "db1");
    EXPECT_EQ(m_resolver.queries[0].service, "1234");
    EXPECT_EQ(m_resolver.queries[0].family, AF_UNSPEC);
    EXPECT_EQ(m_resolver.queries[0].socketType, SOCK_STREAM);
    EXPECT_EQ(m_resolver.queries[0].flags, AI_CANONNAME);
}

TEST_F(NetworkTest, FullyQualifiedNameIsEmptyWithoutACanonicalOne) {
    m_resolver.answers = {{"10.0.0.1", nullptr}};
    EXPECT_TRUE(SystemUtility::GetFullyQualifiedDomainName().empty());
}

TEST_F(NetworkTest, FullyQualifiedNameIsEmptyWhenTheResolverFails) {
    EXPECT_TRUE(SystemUtility::GetFullyQualifiedDomainName().empty());
    EXPECT_EQ(m_resolver.queries.size(), 1U);
}

TEST(GetHostNameFromFQDN, IsTheTextBeforeTheFirstDot) {
    const struct {
        const wchar_t* name;
        const wchar_t* host;
    } rows[] = {{L"db1.example", L"db1"}, {L"db1.example.org", L"db1"},
                {L"db1", L"db1"},         {L"", L""},
                {L".org", L""},           {L"a.", L"a"}};
    for (const auto& row : rows) {
        EXPECT_EQ(wide(SystemUtility::GetHostNameFromFQDN(row.name)), row.host);
    }
}

TEST(IsIPv4Address, AsksForFourNumbersUpTo255) {
    const struct {
        const wchar_t* text;
        bool expected;
    } rows[] = {{L"10.0.0.1", true},
                {L"0.0.0.0", true},
                {L"255.255.255.255", true},
                {L"10.0.0", false},
                {L"10.0.0.256", false},
                {L"a.b.c.d", false},
                {L"1.2.3.4.5", false},
                {L"10.0.0.-1", false},
                {L"", false},
                {L"10", false},
                {L"...", false},
                {L"1.2.3.x", false},
                {L"1.2.3.99999", false},
                {L"::1", false},
                {L"db1.example.org.x", false},
                {L"4294967296.0.0.1", false}};
    for (const auto& row : rows) {
        EXPECT_EQ(SystemUtility::IsIPv4Address(row.text), row.expected) << std::wstring(row.text).size();
    }
}

TEST(IsIPv4Address, TakesNoNoticeOfEmptyParts) {
    EXPECT_TRUE(SystemUtility::IsIPv4Address(L"10..0.0.1"));
    EXPECT_TRUE(SystemUtility::IsIPv4Address(L"10.0.0.1."));
}

TEST(IsFullyQualifiedDomainName, IsANameWithADotThatIsNoAddress) {
    const struct {
        const wchar_t* text;
        bool expected;
    } rows[] = {{L"db1", false},       {L"db1.example", true}, {L"10.0.0.1", false}, {L"", false},
                {L"10.0.0.256", true}, {L".", true},           {L"db1.", true}};
    for (const auto& row : rows) {
        EXPECT_EQ(SystemUtility::IsFullyQualifiedDomainName(row.text), row.expected)
            << std::wstring(row.text).size();
    }
}

TEST(ExtractHostAndPort, SplitsAtTheLastColon) {
    const struct {
        const wchar_t* text;
        bool result;
        const wchar_t* host;
        const wchar_t* port;
    } rows[] = {
        {L"host:80", true, L"host", L"80"},
        {L"[::1]:80", true, L"::1", L"80"},
        {L"::1:80", true, L"::1", L"80"},
        {L"[fe80::1%eth0]:443", true, L"fe80::1%eth0", L"443"},
        {L"[host]:80", true, L"[host]", L"80"}, // no colon inside, so no IPv6 literal
        {L"[::1:80", true, L"[::1", L"80"},
        {L"host:", true, L"host", L""},
        {L"a:b:c", true, L"a:b", L"c"},
        {L":80", false, L"h", L"p"},
        {L"host", false, L"h", L"p"},
        {L"", false, L"h", L"p"},
        {L":", false, L"h", L"p"},
        {L"[:]:1", true, L":", L"1"},
        {L"::", true, L":", L""},
    };
    for (const auto& row : rows) {
        String host(L"h");
        String port(L"p");
        EXPECT_EQ(SystemUtility::ExtractHostAndPort(row.text, host, port), row.result);
        EXPECT_EQ(wide(host), row.host);
        EXPECT_EQ(wide(port), row.port);
    }
}

TEST(ExtractHostAndPort, MayReplaceItsOwnText) {
    String text(L"[::1]:80");
    String port;
    EXPECT_TRUE(SystemUtility::ExtractHostAndPort(text, text, port));
    EXPECT_EQ(text, String(L"::1"));
    EXPECT_EQ(port, String(L"80"));
    String host;
    String again(L"host:80");
    EXPECT_TRUE(SystemUtility::ExtractHostAndPort(again, host, again));
    EXPECT_EQ(host, String(L"host"));
    EXPECT_EQ(again, String(L"80"));
}

// ---- Addresses --------------------------------------------------------------------------------------------

TEST_F(NetworkTest, AddressesAreAppendedInTheResolversOrder) {
    m_resolver.answers = {{"10.0.0.1", nullptr}, {"::1", nullptr}, {"10.0.0.2", nullptr}};
    EXPECT_EQ(addressesOf(0, L"db1"), (Strings{L"kept", L"10.0.0.1", L"::1", L"10.0.0.2"}));
    ASSERT_EQ(m_resolver.queries.size(), 1U);
    EXPECT_EQ(m_resolver.queries[0].host, "db1");
    EXPECT_EQ(m_resolver.queries[0].service, "1234");
    EXPECT_EQ(m_resolver.queries[0].socketType, SOCK_STREAM);
}

TEST_F(NetworkTest, AddressesAreOfTheFamilyAskedFor) {
    m_resolver.answers = {{"10.0.0.1", nullptr}, {"::1", nullptr}};
    EXPECT_EQ(addressesOf(AF_INET, L"db1"), (Strings{L"kept", L"10.0.0.1"}));
    EXPECT_EQ(addressesOf(AF_INET6, L"db1"), (Strings{L"kept", L"::1"}));
    for (const int both : {0, -1, 12345}) {
        EXPECT_EQ(addressesOf(both, L"db1"), (Strings{L"kept", L"10.0.0.1", L"::1"}));
    }
    EXPECT_EQ(m_resolver.queries.back().family, AF_UNSPEC);
}

TEST_F(NetworkTest, AddressesOfAnUnknownHostAreNone) {
    EXPECT_EQ(addressesOf(0, L"db1"), Strings{L"kept"});
    EXPECT_EQ(m_resolver.queries.size(), 1U);
}

TEST_F(NetworkTest, AnAddressWithoutATextIsLeftOut) {
    m_resolver.answers = {{"10.0.0.1", nullptr}, {"::1", nullptr}, {"10.0.0.2", nullptr}};
    m_resolver.numericNameFails = true;
    EXPECT_EQ(addressesOf(0, L"db1"), (Strings{L"kept", L"10.0.0.1", L"10.0.0.2"}));
}

TEST_F(NetworkTest, AddressesOfTheLoopbackAreFoundForReal) {
    m_resolver.isReal = true;
    EXPECT_EQ(addressesOf(AF_INET, L"127.0.0.1"), (Strings{L"kept", L"127.0.0.1"}));
    EXPECT_EQ(addressesOf(AF_INET6, L"::1"), (Strings{L"kept", L"::1"}));
    EXPECT_EQ(addressesOf(AF_INET, L"::1"), Strings{L"kept"});
}

// ---- The machine's own address ----------------------------------------------------------------------------

TEST(MachineIP, HasNoAddressAtFirst) { EXPECT_EQ(bytesOf(MachineIP()), Bytes()); }

TEST_F(NetworkTest, TheMachinesAddressIsItsFirstIPv4One) {
    m_resolver.hostName = "db1.example.org";
    m_resolver.answers = {{"::1", nullptr}, {"10.1.2.3", nullptr}, {"10.0.0.2", nullptr}};
    MachineIP machine;
    machine.RetrievingIP();
    EXPECT_EQ(bytesOf(machine), (Bytes{10, 1, 2, 3}));
    ASSERT_EQ(m_resolver.queries.size(), 1U);
    EXPECT_EQ(m_resolver.queries[0].host, "db1");
    EXPECT_EQ(m_resolver.queries[0].service, "1234");
    EXPECT_EQ(m_resolver.queries[0].family, AF_INET);
    EXPECT_EQ(m_resolver.queries[0].socketType, SOCK_STREAM);
}

TEST_F(NetworkTest, TheMachinesAddressIsIPv6WhereThereIsNoIPv4) {
    m_resolver.answers = {{"2001:db8::7", nullptr}};
    MachineIP machine;
    machine.RetrievingIP();
    EXPECT_EQ(bytesOf(machine), (Bytes{0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7}));
    ASSERT_EQ(m_resolver.queries.size(), 2U);
    EXPECT_EQ(m_resolver.queries[1].family, AF_INET6);
}

TEST_F(NetworkTest, TheMachinesAddressStaysWhenThereIsNone) {
    m_resolver.answers = {{"10.1.2.3", nullptr}};
    MachineIP machine;
    machine.RetrievingIP();
    m_resolver.answers.clear();
    machine.RetrievingIP();
    EXPECT_EQ(bytesOf(machine), (Bytes{10, 1, 2, 3}));
}

TEST_F(NetworkTest, TheMachinesAddressChangesItsSize) {
    m_resolver.answers = {{"2001:db8::7", nullptr}};
    MachineIP machine;
    machine.RetrievingIP();
    m_resolver.answers = {{"10.1.2.3", nullptr}};
    machine.RetrievingIP();
    EXPECT_EQ(bytesOf(machine), (Bytes{10, 1, 2, 3}));
}

} // namespace
