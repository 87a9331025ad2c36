// Host names and addresses.
#include "Utility/Generic/Portable/SUPOS.h"

#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using String = sup::String<wchar_t>;
using NarrowString = sup::String<char>;

constexpr std::size_t kHostBuffer = 512;
constexpr const char* kPlaceholderPort = "1234"; // so that the resolver returns socket addresses

String widen(const char* text) {
    return BaseStringUtil::StringFrom(text, SystemUtility::GetMultiByteCodePage());
}

// Empty when the system does not tell.
struct SystemHostName {
    char text[kHostBuffer] = {};

    SystemHostName() {
        if (::gethostname(text, sizeof(text)) != 0) {
            text[0] = '\0';
        }
        text[sizeof(text) - 1] = '\0';
    }
};

// What the resolver finds, stream sockets only; empty on failure.
class Addresses {
public:
    Addresses(const char* host, int family, int flags) {
        struct addrinfo hints {};
        hints.ai_family = family;
        hints.ai_socktype = SOCK_STREAM;
        hints.ai_flags = flags;
        if (::getaddrinfo(host, kPlaceholderPort, &hints, &m_first) != 0) {
            m_first = nullptr;
        }
    }
    ~Addresses() {
        if (m_first != nullptr) {
            ::freeaddrinfo(m_first);
        }
    }
    Addresses(const Addresses&) = delete;
    Addresses& operator=(const Addresses&) = delete;

    const struct addrinfo* first() const { return m_first; }

private:
    struct addrinfo* m_first = nullptr;
};

// The address bytes of a socket address, in network order.
template <class Socket, class Address>
void copyAddress(const struct addrinfo& from, Address Socket::*member, std::vector<unsigned char>& bytes) {
    Socket socket;
    std::memcpy(&socket, from.ai_addr, sizeof(socket));
    bytes.resize(sizeof(Address));
    std::memcpy(bytes.data(), &(socket.*member), sizeof(Address));
}

} // namespace

sup::String<wchar_t> SystemUtility::GetHostName() {
    const String name = widen(SystemHostName().text);
    return IsFullyQualifiedDomainName(name) ? GetHostNameFromFQDN(name) : name;
}

sup::String<wchar_t> SystemUtility::GetFullyQualifiedDomainName() {
    const Addresses addresses(SystemHostName().text, AF_UNSPEC, AI_CANONNAME);
    for (const struct addrinfo* address = addresses.first(); address != nullptr; address = address->ai_next) {
        if (address->ai_canonname != nullptr) {
            return widen(address->ai_canonname);
        }
    }
    return {};
}

sup::String<wchar_t> SystemUtility::GetHostNameFromFQDN(const String& name) {
    return name.substr(0, name.find(L'.'));
}

bool SystemUtility::IsIPv4Address(const String& text) {
    BrimStringVector parts;
    BaseStringUtil::Tokenize(text, L".", parts, false, false);
    if (parts.size() != 4) {
        return false;
    }
    return std::all_of(parts.begin(), parts.end(), [](const String& part) {
        // As a long: the 32 bits of a larger number may look small.
        return BaseStringUtil::IsInteger(part) &&
               static_cast<unsigned long>(std::wcstol(part.c_str(), nullptr, 10)) <= 255;
    });
}

bool SystemUtility::IsFullyQualifiedDomainName(const String& text) {
    return !IsIPv4Address(text) && text.find(L'.') != text.length();
}

bool SystemUtility::ExtractHostAndPort(const String& text, String& host, String& port) {
    const std::size_t colon = text.rfind(L':');
    if (colon == 0 || colon >= text.length()) {
        return false;
    }
    String foundHost = text.substr(0, colon);
    const String foundPort = text.substr(colon + 1);
    if (foundHost.find(L':', 1) != foundHost.length() && foundHost.front() == L'[' &&
        foundHost.back() == L']') {
        foundHost = foundHost.substr(1, foundHost.length() - 2);
    }
    host = foundHost;
    port = foundPort;
    return true;
}

void SystemUtility::GetHostIPAddresses(int family, const String& host, BrimStringVector& list) {
    NarrowString narrow;
    if (!BaseStringUtil::TryStringToStdString(host, narrow, GetMultiByteCodePage())) {
        return;
    }
    const Addresses addresses(narrow.c_str(), family == AF_INET || family == AF_INET6 ? family : AF_UNSPEC,
                              0);
    BrimStringVector found; // `list` gets all or, without memory, none
    for (const struct addrinfo* address = addresses.first(); address != nullptr; address = address->ai_next) {
        char text[kHostBuffer];
        if (::getnameinfo(address->ai_addr, address->ai_addrlen, text, sizeof(text), nullptr, 0,
                          NI_NUMERICHOST) == 0) {
            found.push_back(widen(text));
        }
    }
    list.insert(list.end(), found.begin(), found.end());
}

void MachineIP::RetrievingIP() {
    NarrowString host;
    if (!BaseStringUtil::TryStringToStdString(SystemUtility::GetHostName(), host,
                                              SystemUtility::GetMultiByteCodePage())) {
        return;
    }
    const Addresses addresses4(host.c_str(), AF_INET, 0);
    if (addresses4.first() != nullptr) {
        copyAddress(*addresses4.first(), &sockaddr_in::sin_addr, m_ipAddr);
        return;
    }
    const Addresses addresses6(host.c_str(), AF_INET6, 0);
    if (addresses6.first() != nullptr) {
        copyAddress(*addresses6.first(), &sockaddr_in6::sin6_addr, m_ipAddr);
    }
}
