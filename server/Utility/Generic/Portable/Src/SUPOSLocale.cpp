// The platform wrappers that depend on a locale: collation, facts, the formats of dates and times.
#include "Utility/Generic/Portable/SUPOSBase.h"

#include "Utility/Generic/Portable/BrimNodeAlloc.h"
#include "Utility/Generic/Portable/SUPAutobuffer.h"
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPExceptionSupport.h"
#include "Utility/Generic/Portable/SUPOS.h"

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <cwchar>
#include <cwctype>
#include <functional>
#include <iterator>
#include <langinfo.h>
#include <map>
#include <mutex>
#include <utility>

namespace OSAbstraction {

unsigned int g_serverLocaleID = 0;
int g_sortLocaleType = kSortLinguistic;

int (*g_wcomparestringFuncPtr)(bool ignoreCase, const wchar_t* a, int aLength, const wchar_t* b,
                               int bLength) = WRAP_wcomparestring;
int (*g_ncomparestringFuncPtr)(bool ignoreCase, const char* a, int aLength, const char* b,
                               int bLength) = WRAP_ncomparestring;
int (*g_wgetlocaleinfoFuncPtr)(unsigned int locale, int item, wchar_t* buffer,
                               int length) = WRAP_wgetlocaleinfo;
int (*g_wgetdateformatFuncPtr)(unsigned int locale, const BrimSystemTime* time, const wchar_t* pattern,
                               wchar_t* buffer, int length) = WRAP_wgetdateformat;
int (*g_wgettimeformatFuncPtr)(unsigned int locale, const BrimSystemTime* time, const wchar_t* pattern,
                               wchar_t* buffer, int length) = WRAP_wgettimeformat;

} // namespace OSAbstraction

namespace {

using String = sup::String<wchar_t>;

constexpr const wchar_t* kThisFile = L"server/Utility/Generic/Portable/Src/SUPOSLocale.cpp";
constexpr int kUnknownItemLine = 445;

// ---- Locales by id ----------------------------------------------------------------------------------------

// The locales that were asked for, each loaded once.
class LocaleTable {
public:
    LocaleTable() = default;
    ~LocaleTable() {
        for (const auto& entry : m_locales) {
            ::freelocale(entry.second);
        }
    }
    LocaleTable(const LocaleTable&) = delete;
    LocaleTable& operator=(const LocaleTable&) = delete;

    // Null for an id that the locale file does not have, or whose locale is not installed.
    locale_t find(unsigned int id) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto known = m_locales.find(id);
        if (known != m_locales.end()) {
            return known->second;
        }
        const locale_t loaded = load(id);
        if (loaded != nullptr) {
            try {
                m_locales.emplace(id, loaded);
            } catch (...) {
                ::freelocale(loaded);
                throw;
            }
        }
        return loaded;
    }

private:
    static locale_t load(unsigned int id) {
        const auto language = GetSortLangMap().find(id);
        if (language == GetSortLangMap().end()) {
            return nullptr;
        }
        const auto entry = GetQuayLocale2SystemLocaleMap().find(language->second);
        const sup::String<char>& name =
            entry == GetQuayLocale2SystemLocaleMap().end() ? language->second : entry->second.first;
        return ::newlocale(LC_ALL_MASK, name.c_str(), nullptr);
    }

    std::mutex m_mutex;
    std::map<unsigned int, locale_t, std::less<unsigned int>,
             BrimStlAllocator<std::pair<const unsigned int, locale_t>>>
        m_locales;
};

// The locale of the calling thread while it lives; the process's own for id 0.
class LocaleInEffect {
public:
    explicit LocaleInEffect(unsigned int id) {
        if (id == 0) {
            id = OSAbstraction::g_serverLocaleID;
        }
        if (id != 0) {
            static LocaleTable table;
            const locale_t locale = table.find(id);
            m_isKnown = locale != nullptr;
            m_before = m_isKnown ? ::uselocale(locale) : nullptr;
        }
    }
    ~LocaleInEffect() {
        if (m_before != nullptr) {
            ::uselocale(m_before);
        }
    }
    LocaleInEffect(const LocaleInEffect&) = delete;
    LocaleInEffect& operator=(const LocaleInEffect&) = delete;

    bool isKnown() const { return m_isKnown; }

private:
    bool m_isKnown = true;
    locale_t m_before = nullptr;
};

// From the narrow text of the locale in effect.
String widen(const char* text) {
    String result;
    std::mbstate_t state{};
    const char* const end = text + std::strlen(text);
    while (text != end) {
        wchar_t c = 0;
        const std::size_t bytes = std::mbrtowc(&c, text, static_cast<std::size_t>(end - text), &state);
        if (bytes > static_cast<std::size_t>(end - text)) {
            break;
        }
        if (c > 0xFFFF) {
            const auto offset = static_cast<unsigned int>(c) - 0x10000U;
            result.push_back(static_cast<wchar_t>(0xD800U + (offset >> 10)));
            c = static_cast<wchar_t>(0xDC00U + (offset & 0x3FFU));
        }
        result.push_back(c);
        text += std::max<std::size_t>(bytes, 1);
    }
    return result;
}

String fact(nl_item item) { return widen(::nl_langinfo(item)); }

int give(const String& text, wchar_t* buffer, int length) {
    const std::size_t needed = text.length() + 1;
    if (length > 0) {
        if (needed > static_cast<std::size_t>(length)) {
            errno = ERANGE;
            return 0;
        }
        std::copy_n(text.c_str(), needed, buffer);
    }
    return static_cast<int>(needed);
}

int failInvalid() {
    errno = EINVAL;
    return 0;
}

// ---- Collation --------------------------------------------------------------------------------------------

constexpr bool isHighSurrogate(wchar_t c) { return c >= 0xD800 && c <= 0xDBFF; }
constexpr bool isLowSurrogate(wchar_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

// A text as the C library's collation wants it: whole characters, folded on request, with a zero at the end.
class Collatable {
public:
    Collatable(const wchar_t* text, int length, bool fold) {
        const std::size_t units = text == nullptr ? 0 : length < 0 ? std::wcslen(text) : asSize(length);
        m_text.growNoPreserve(units + 1);
        wchar_t* out = m_text.data();
        for (std::size_t i = 0; i < units; ++i) {
            wchar_t c = text[i];
            if (isHighSurrogate(c) && i + 1 < units && isLowSurrogate(text[i + 1])) {
                c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00);
            }
            *out++ = fold ? static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c))) : c;
        }
        *out = L'\0';
        m_end = out;
    }

    const wchar_t* begin() const { return m_text.data(); }
    const wchar_t* end() const { return m_end; }

private:
    static std::size_t asSize(int length) { return static_cast<std::size_t>(length); }

    AutoBuffer<wchar_t, 256> m_text;
    const wchar_t* m_end = nullptr;
};

// The C library compares up to a zero; what follows zeros inside the texts decides next.
int compareInPieces(const Collatable& a, const Collatable& b) {
    const bool linguistic = OSAbstraction::g_sortLocaleType == OSAbstraction::kSortLinguistic;
    const wchar_t* p = a.begin();
    const wchar_t* q = b.begin();
    for (;;) {
        const int order = linguistic ? std::wcscoll(p, q) : std::wcscmp(p, q);
        if (order != 0) {
            return order;
        }
        p += std::wcslen(p);
        q += std::wcslen(q);
        if (p == a.end() || q == b.end()) {
            return static_cast<int>(p != a.end()) - static_cast<int>(q != b.end());
        }
        ++p;
        ++q;
    }
}

// ---- Facts ------------------------------------------------------------------------------------------------

// An item of a run of codes that nl_langinfo numbers in the same order.
bool isWithin(int item, int first, int count) { return item >= first && item < first + count; }

nl_item after(nl_item first, int steps) { return first + steps; }

// The C library's week begins with Sunday.
nl_item dayAfter(nl_item sunday, int daysAfterMonday) { return after(sunday, (daysAfterMonday + 1) % 7); }

bool findFact(int item, String& text) {
    switch (item) {
    case kLocaleListSeparator:
        text = fact(RADIXCHAR) == String(L",") ? L";" : L",";
        return true;
    case kLocaleDecimalPoint:
        text = fact(RADIXCHAR);
        return true;
    case kLocaleThousandsSeparator:
        text = fact(THOUSEP);
        return true;
    case kLocaleCurrencySymbol:
        text = fact(CRNCYSTR).substr(1);
        return true;
    case kLocaleShortDateFormat:
        text = fact(D_FMT);
        return true;
    case kLocaleLongDateFormat:
        text = fact(D_T_FMT);
        return true;
    case kLocaleTimeFormat:
        text = fact(T_FMT);
        return true;
    case kLocaleAm:
        text = fact(AM_STR);
        return true;
    case kLocalePm:
        text = fact(PM_STR);
        return true;
    case kLocaleName:
        text = fact(_NL_LOCALE_NAME(LC_CTYPE));
        return true;
    case kLocaleCodeSet:
        text = fact(CODESET);
        return true;
    default:
        break;
    }
    if (isWithin(item, kLocaleDayName, 7)) {
        text = fact(dayAfter(DAY_1, item - kLocaleDayName));
    } else if (isWithin(item, kLocaleAbbreviatedDayName, 7)) {
        text = fact(dayAfter(ABDAY_1, item - kLocaleAbbreviatedDayName));
    } else if (isWithin(item, kLocaleMonthName, 12)) {
        text = fact(after(MON_1, item - kLocaleMonthName));
    } else if (isWithin(item, kLocaleAbbreviatedMonthName, 12)) {
        text = fact(after(ABMON_1, item - kLocaleAbbreviatedMonthName));
    } else {
        return false;
    }
    return true;
}

// ---- Formats ----------------------------------------------------------------------------------------------

void appendNumber(String& out, int value, std::size_t digits) {
    const String text = BaseStringUtil::StringFrom(value);
    out.append(digits > text.length() ? digits - text.length() : 0, L'0').append(text);
}

// Appends what `count` letters `letter` of a pattern stand for; false when the letter stands for itself.
using PatternField = bool (*)(String& out, const BrimSystemTime& time, wchar_t letter, std::size_t count);

bool appendDateField(String& out, const BrimSystemTime& time, wchar_t letter, std::size_t count) {
    switch (letter) {
    case L'd':
        if (count < 3) {
            appendNumber(out, time.day(), count);
        } else {
            out.append(fact(after(count == 3 ? ABDAY_1 : DAY_1, time.dayOfWeek())));
        }
        return true;
    case L'M':
        if (count < 3) {
            appendNumber(out, time.month(), count);
        } else {
            out.append(fact(after(count == 3 ? ABMON_1 : MON_1, time.month() - 1)));
        }
        return true;
    case L'y':
        appendNumber(out, count < 3 ? std::abs(time.year() % 100) : time.year(), count);
        return true;
    default:
        return false;
    }
}

bool appendTimeField(String& out, const BrimSystemTime& time, wchar_t letter, std::size_t count) {
    const std::size_t digits = std::min<std::size_t>(count, 2);
    switch (letter) {
    case L'h':
        appendNumber(out, (time.hour() + 11) % 12 + 1, digits);
        return true;
    case L'H':
        appendNumber(out, time.hour(), digits);
        return true;
    case L'm':
        appendNumber(out, time.minute(), digits);
        return true;
    case L's':
        appendNumber(out, time.second(), digits);
        return true;
    case L'f': {
        String milliseconds;
        appendNumber(milliseconds, time.milliseconds(), 3);
        out.append(milliseconds.c_str(), std::min<std::size_t>(count, 3));
        return true;
    }
    case L't': {
        const String mark = fact(time.hour() < 12 ? AM_STR : PM_STR);
        out.append(count == 1 ? mark.substr(0, 1) : mark);
        return true;
    }
    default:
        return false;
    }
}

// Appends the quoted text that begins at `p`, a quote, and returns where it ends. Two quotes are one.
const wchar_t* appendQuoted(String& out, const wchar_t* p) {
    if (p[1] == L'\'') {
        out.push_back(L'\'');
        return p + 2;
    }
    for (++p; *p != L'\0'; ++p) {
        if (*p == L'\'') {
            if (p[1] != L'\'') {
                return p + 1;
            }
            ++p;
        }
        out.push_back(*p);
    }
    return p;
}

String expand(const wchar_t* pattern, const BrimSystemTime& time, PatternField appendField) {
    String out;
    for (const wchar_t* p = pattern; *p != L'\0';) {
        if (*p == L'\'') {
            p = appendQuoted(out, p);
            continue;
        }
        const wchar_t* end = p;
        while (*end == *p) {
            ++end;
        }
        const auto count = static_cast<std::size_t>(end - p);
        if (!appendField(out, time, *p, count)) {
            out.append(count, *p);
        }
        p = end;
    }
    return out;
}

String formatted(const char* format, const BrimSystemTime& time) {
    std::tm parts{};
    parts.tm_year = time.year() - 1900;
    parts.tm_mon = time.month() - 1;
    parts.tm_mday = time.day();
    parts.tm_wday = time.dayOfWeek();
    parts.tm_hour = time.hour();
    parts.tm_min = time.minute();
    parts.tm_sec = time.second();
    char text[1024];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const std::size_t length = std::strftime(text, sizeof(text), format, &parts);
#pragma GCC diagnostic pop
    text[length] = '\0';
    return widen(text);
}

bool isDate(const BrimSystemTime& time) {
    return time.month() >= 1 && time.month() <= 12 && time.day() >= 1 && time.day() <= 31 &&
           time.dayOfWeek() <= 6;
}

bool isTimeOfDay(const BrimSystemTime& time) {
    return time.hour() <= 23 && time.minute() <= 59 && time.second() <= 60 && time.milliseconds() <= 999;
}

int giveFormatted(unsigned int locale, const BrimSystemTime& time, const wchar_t* pattern,
                  PatternField appendField, const char* ownFormat, wchar_t* buffer, int length) {
    const LocaleInEffect inEffect(locale);
    if (!inEffect.isKnown()) {
        return failInvalid();
    }
    return give(pattern == nullptr ? formatted(ownFormat, time) : expand(pattern, time, appendField), buffer,
                length);
}

} // namespace

int WRAP_wcomparestring(bool ignoreCase, const wchar_t* a, int aLength, const wchar_t* b, int bLength) {
    const LocaleInEffect inEffect(0);
    return compareInPieces(Collatable(a, aLength, ignoreCase), Collatable(b, bLength, ignoreCase));
}

int WRAP_ncomparestring(bool ignoreCase, const char* a, int aLength, const char* b, int bLength) {
    const auto widened = [](const char* text, int length) {
        String result;
        if (text != nullptr) {
            BaseStringUtil::StdStringToString(text, static_cast<unsigned int>(length), result,
                                              SystemUtility::GetMultiByteCodePage());
        }
        return result;
    };
    const String wideA = widened(a, aLength);
    const String wideB = widened(b, bLength);
    return WRAP_wcomparestring(ignoreCase, wideA.c_str(), static_cast<int>(wideA.length()), wideB.c_str(),
                               static_cast<int>(wideB.length()));
}

int WRAP_wgetlocaleinfo(unsigned int locale, int item, wchar_t* buffer, int length) {
    const LocaleInEffect inEffect(locale);
    if (!inEffect.isKnown()) {
        return failInvalid();
    }
    String text;
    if (!findFact(item, text)) {
        BrimAssert::handleAssert(kThisFile, kUnknownItemLine, L"0");
        std::abort();
    }
    return give(text, buffer, length);
}

int WRAP_wgetdateformat(unsigned int locale, const BrimSystemTime* time, const wchar_t* pattern,
                        wchar_t* buffer, int length) {
    return time == nullptr || !isDate(*time)
               ? failInvalid()
               : giveFormatted(locale, *time, pattern, appendDateField, "%x", buffer, length);
}

int WRAP_wgettimeformat(unsigned int locale, const BrimSystemTime* time, const wchar_t* pattern,
                        wchar_t* buffer, int length) {
    return time == nullptr || !isTimeOfDay(*time)
               ? failInvalid()
               : giveFormatted(locale, *time, pattern, appendTimeField, "%X", buffer, length);
}
