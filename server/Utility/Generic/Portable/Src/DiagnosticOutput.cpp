#include "DiagnosticOutput.h"

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <limits>
#include <unistd.h>

namespace sup {

namespace {

constexpr std::size_t kNoLimit = std::numeric_limits<std::size_t>::max();

// A wide stream refuses bytes, so there they go to its descriptor, behind what it holds.
bool isWideStream() { return std::fwide(stdout, 0) > 0; }

void put(const char* bytes, std::size_t n) {
    if (!isWideStream()) {
        std::fwrite(bytes, 1, n, stdout);
        return;
    }
    std::fflush(stdout);
    while (n != 0) {
        const ssize_t written = ::write(::fileno(stdout), bytes, n);
        if (written < 0 && errno != EINTR) {
            return;
        }
        const std::size_t done = written < 0 ? 0 : static_cast<std::size_t>(written);
        bytes += done;
        n -= done;
    }
}

void put(const char* text) { put(text, std::strlen(text)); }

void vprint(const char* format, va_list args) {
    if (!isWideStream()) {
        std::vprintf(format, args);
        return;
    }
    std::fflush(stdout);
    ::vdprintf(::fileno(stdout), format, args);
}

__attribute__((format(printf, 1, 2))) void print(const char* format, ...) {
    va_list args;
    va_start(args, format);
    vprint(format, args);
    va_end(args);
}

bool isHighSurrogate(wchar_t c) { return (static_cast<std::uint32_t>(c) & ~0x3FFU) == 0xD800; }
bool isLowSurrogate(wchar_t c) { return (static_cast<std::uint32_t>(c) & ~0x3FFU) == 0xDC00; }

// One printf directive, taken apart.
struct Directive {
    char spec[64];             // "%", flags, width and precision as numbers, length, conversion
    const char* end = nullptr; // after it in the format; null when it is none that is known here
    bool leftAligned = false;
    int width = 0;
    int precision = -1;
    char length[3] = {};
    char conversion = 0;
};

bool isOneOf(char c, const char* set) { return c != '\0' && std::strchr(set, c) != nullptr; }

// Reads a width or precision: digits, or '*' for an argument.
const char* readNumber(const char* p, int& value, va_list* args) {
    if (*p == '*') {
        value = va_arg(*args, int);
        return p + 1;
    }
    for (; *p >= '0' && *p <= '9'; ++p) {
        value = value > (std::numeric_limits<int>::max() - 9) / 10 ? value : value * 10 + (*p - '0');
    }
    return p;
}

// `p` is after the '%'.
Directive readDirective(const char* p, va_list* args) {
    Directive d;
    char flags[8] = {};
    for (std::size_t n = 0; isOneOf(*p, "-+ #0'I"); ++p) {
        if (n < sizeof(flags) - 1 && std::strchr(flags, *p) == nullptr) {
            flags[n++] = *p;
        }
    }
    p = readNumber(p, d.width, args);
    if (d.width < 0) { // a negative '*' is a left-aligned field
        d.leftAligned = true;
        d.width = d.width == std::numeric_limits<int>::min() ? 0 : -d.width;
    }
    d.leftAligned = d.leftAligned || std::strchr(flags, '-') != nullptr;
    if (*p == '.') {
        d.precision = 0;
        p = readNumber(p + 1, d.precision, args);
    }
    for (std::size_t n = 0; n < 2 && isOneOf(*p, "hlLqjzt"); ++n) {
        d.length[n] = *p++;
    }
    if (!isOneOf(*p, "diouxXeEfFgGaAcsCSpm%")) {
        return d;
    }
    d.conversion = *p;
    d.end = p + 1;
    char precision[16] = {};
    if (d.precision >= 0) {
        std::snprintf(precision, sizeof(precision), ".%d", d.precision);
    }
    char width[16] = {};
    if (d.width > 0) {
        std::snprintf(width, sizeof(width), "%d", d.width);
    }
    std::snprintf(d.spec, sizeof(d.spec), "%%%s%s%s%s%s%c",
                  d.leftAligned && std::strchr(flags, '-') == nullptr ? "-" : "", flags, width, precision,
                  d.length, d.conversion);
    return d;
}

bool isWide(const Directive& d) { return d.conversion == 'S' || (d.conversion == 's' && d.length[0] == 'l'); }
bool isWideCharacter(const Directive& d) {
    return d.conversion == 'C' || (d.conversion == 'c' && d.length[0] == 'l');
}

// Prints one directive that is not wide, with the argument type that it names.
void printDirective(const Directive& d, va_list* args) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    // NOLINTBEGIN(bugprone-branch-clone): the types differ
    switch (d.conversion) {
    case 'd':
    case 'i':
    case 'o':
    case 'u':
    case 'x':
    case 'X':
        // Types of one size and kind are passed alike, whatever their sign.
        if (std::strchr("lqLjzt", d.length[0]) != nullptr && d.length[0] != '\0') {
            print(d.spec, va_arg(*args, long));
        } else {
            print(d.spec, va_arg(*args, int));
        }
        break;
    case 'e':
    case 'E':
    case 'f':
    case 'F':
    case 'g':
    case 'G':
    case 'a':
    case 'A':
        if (d.length[0] == 'L') {
            print(d.spec, va_arg(*args, long double));
        } else {
            print(d.spec, va_arg(*args, double));
        }
        break;
    case 'c':
        print(d.spec, va_arg(*args, int));
        break;
    case 's':
        print(d.spec, va_arg(*args, const char*));
        break;
    case 'p':
        print(d.spec, va_arg(*args, const void*));
        break;
    default: // "%%" and "%m" take no argument
        print(d.spec, 0);
        break;
    }
    // NOLINTEND(bugprone-branch-clone)
#pragma GCC diagnostic pop
}

// Returns the bytes of what it prints, or would print: whole characters, up to `maxBytes`.
std::size_t putWide(const wchar_t* text, std::size_t maxBytes, bool print) {
    std::mbstate_t state{};
    std::size_t bytes = 0;
    while (bytes < maxBytes && *text != L'\0') {
        wchar_t c = *text++;
        if (isHighSurrogate(c) && isLowSurrogate(*text)) {
            const std::uint32_t high = static_cast<std::uint32_t>(c) - 0xD800U;
            const std::uint32_t low = static_cast<std::uint32_t>(*text++) - 0xDC00U;
            c = static_cast<wchar_t>(0x10000U + (high << 10) + low);
        }
        char buffer[32]; // no locale's characters come near it
        std::size_t length = std::wcrtomb(buffer, c, &state);
        if (length == static_cast<std::size_t>(-1)) {
            state = std::mbstate_t{};
            buffer[0] = '?';
            length = 1;
        }
        if (length > maxBytes - bytes) {
            break;
        }
        bytes += length;
        if (print) {
            put(buffer, length);
        }
    }
    return bytes;
}

void printBlanks(std::size_t n) {
    for (; n != 0; --n) {
        put(" ");
    }
}

} // namespace

DiagnosticLine::DiagnosticLine() noexcept { ::flockfile(stdout); }

DiagnosticLine::~DiagnosticLine() {
    std::fflush(stdout);
    ::funlockfile(stdout);
}

DiagnosticLine& DiagnosticLine::text(const char* text) noexcept {
    put(text == nullptr ? "(null)" : text);
    return *this;
}

DiagnosticLine& DiagnosticLine::text(const wchar_t* text) noexcept {
    putWide(text == nullptr ? L"(null)" : text, kNoLimit, true);
    return *this;
}

DiagnosticLine& DiagnosticLine::number(long value) noexcept {
    print("%ld", value);
    return *this;
}

DiagnosticLine& DiagnosticLine::format(const char* format, va_list args) noexcept {
    // A directive with an argument position is "%", digits, "$".
    for (const char* p = std::strchr(format, '%'); p != nullptr; p = std::strchr(p + 1, '%')) {
        const std::size_t digits = std::strspn(p + 1, "0123456789");
        if (digits != 0 && p[1 + digits] == '$') {
            vprint(format, args);
            return *this;
        }
    }
    const int error = errno; // for "%m", whatever is printed before it
    va_list rest;
    va_copy(rest, args);
    for (const char* p = format; *p != '\0';) {
        const std::size_t plain = std::strcspn(p, "%");
        put(p, plain);
        p += plain;
        if (*p == '\0') {
            break;
        }
        const Directive d = readDirective(p + 1, &rest);
        if (d.end == nullptr) { // nothing is known of its arguments, so the rest goes out as it stands
            put(p);
            break;
        }
        if (isWide(d) || isWideCharacter(d)) {
            const wchar_t single[2] = {isWide(d) ? L'\0' : static_cast<wchar_t>(va_arg(rest, std::wint_t)),
                                       L'\0'};
            const wchar_t* const argument = isWide(d) ? va_arg(rest, const wchar_t*) : single;
            const std::size_t limit =
                d.precision < 0 || !isWide(d) ? kNoLimit : static_cast<std::size_t>(d.precision);
            // As the C library does: null is shown whole or not at all.
            const wchar_t* const shown = argument != nullptr ? argument : limit < 6 ? L"" : L"(null)";
            const bool nul = !isWide(d) && single[0] == L'\0';
            const std::size_t bytes = nul ? 1 : putWide(shown, limit, false);
            const auto width = static_cast<std::size_t>(d.width);
            const std::size_t padding = bytes < width ? width - bytes : 0;
            printBlanks(d.leftAligned ? 0 : padding);
            if (nul) {
                put("", 1);
            } else {
                putWide(shown, limit, true);
            }
            printBlanks(d.leftAligned ? padding : 0);
        } else {
            errno = error;
            printDirective(d, &rest);
        }
        p = d.end;
    }
    va_end(rest);
    return *this;
}

} // namespace sup
