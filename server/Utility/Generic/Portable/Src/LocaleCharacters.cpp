#include "LocaleCharacters.h"

#include <mutex>
#include <wctype.h>

namespace sup {

namespace {

// Held while tables are added or filled.
constinit std::mutex g_mutex;

wchar_t plainLower(wchar_t c) { return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c + 0x20) : c; }
wchar_t plainUpper(wchar_t c) { return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - 0x20) : c; }

} // namespace

constinit LocaleCharacters LocaleCharacters::s_known[kMostLocales];

const LocaleCharacters* LocaleCharacters::addCurrent() noexcept {
    const locale_t held = ::duplocale(::uselocale(locale_t()));
    if (held == locale_t()) {
        return nullptr;
    }
    const char* const key = ::nl_langinfo_l(CODESET, held);
    const std::lock_guard<std::mutex> lock(g_mutex);
    for (LocaleCharacters& known : s_known) {
        const char* const knownKey = known.m_key.load(std::memory_order_relaxed);
        if (knownKey == key) {
            ::freelocale(held);
            return &known;
        }
        if (knownKey == nullptr) {
            known.setUp(held);
            known.m_key.store(key, std::memory_order_release);
            return &known;
        }
    }
    ::freelocale(held);
    return nullptr;
}

void LocaleCharacters::setUp(locale_t locale) noexcept {
    m_locale = locale;
    for (std::uint32_t page = 0; page < kAlphabetsLimit / kPage; ++page) {
        fillPageLocked(page);
    }
    m_lowersPlainAscii = true;
    m_raisesPlainAscii = true;
    for (wchar_t c = 0; c < 0x80; ++c) {
        m_lowersPlainAscii &= m_lower[c] == plainLower(c);
        m_raisesPlainAscii &= m_upper[c] == plainUpper(c);
    }
    for (std::uint32_t c = 0; c < kLowLimit; ++c) {
        m_lowClasses[c] = static_cast<std::uint8_t>((::iswalnum_l(c, locale) != 0 ? kAlphanumeric : 0) |
                                                    (::iswspace_l(c, locale) != 0 ? kSpace : 0));
    }
}

LocaleCharacters::~LocaleCharacters() {
    const std::lock_guard<std::mutex> lock(g_mutex); // a thread may still fill a page
    if (m_locale != locale_t()) {
        ::freelocale(m_locale);
        m_locale = locale_t();
    }
}

void LocaleCharacters::fillPageLocked(std::uint32_t page) const noexcept {
    const bool isHeld = m_locale != locale_t(); // not at the end of the process: there it is the current one
    for (std::uint32_t c = page * kPage; c < (page + 1) * kPage; ++c) {
        m_lower[c] = static_cast<wchar_t>(isHeld ? ::towlower_l(c, m_locale) : ::towlower(c));
        m_upper[c] = static_cast<wchar_t>(isHeld ? ::towupper_l(c, m_locale) : ::towupper(c));
    }
    m_isFilled[page].store(true, std::memory_order_release);
}

void LocaleCharacters::fillPage(std::uint32_t page) const noexcept {
    const std::lock_guard<std::mutex> lock(g_mutex);
    if (!m_isFilled[page].load(std::memory_order_relaxed)) {
        fillPageLocked(page);
    }
}

} // namespace sup
