// The replaceable parts of the operating-system layer: the error-message manager, the platform settings, the
// table of platform wrappers, and the checker of unsynchronised writes.
#pragma once

#include "Utility/Generic/Portable/SUPExport.h"
#include "Utility/Generic/Portable/memallocnewdel.h"

#include <cstdio>

struct stat; // <sys/stat.h>

/// Receives the recoverable failures of the library: a number and up to two narrow texts. The default manager
/// prints one line on standard output and returns; a host may register one of its own, which may throw.
///
/// Registration belongs to start-up, before other threads report failures. A registered manager must outlive
/// every report, so call Register(nullptr) before destroying it.
class BRIMPORTABLE_API UtilityPortableErrorMessageManager : public memalloc::MemAllocNewdel {
public:
    /// The failures. The values travel as plain int.
    enum errCode {
        E_Portable_LackOfSpace = 0,
        E_Portable_EncodingUnsupported = -1,
        E_Portable_DefaultLocaleUnsupported = -2,
        E_Portable_LocaleUnavailable = -3,
        E_Portable_IncompleteCharOrShiftSeq = -4,
        E_Portable_IllegalCharOrShiftSeq = -5,
        E_Portable_BadF = -6,
        E_Portable_UnknownIconvErr = -7,
        E_Portable_UnknownHostname = -8,
        E_Portable_XmlFileNotFound = -9,
        E_Portable_XmlParserFailure = -10,
        E_Portable_WSAStartup = -11,
        E_Portable_GetHostByName = -12
    };

    virtual ~UtilityPortableErrorMessageManager() = default;
    /// Reports failure `code`. `arg1` may be null, and then `arg2` is ignored; `arg2` may be null.
    virtual void ThrowErrorMessage(int code, const char* arg1, const char* arg2) = 0;

    /// Returns the current manager, never null. With `replace` it first makes `mgr` the current one, or the
    /// default one when `mgr` is null.
    static UtilityPortableErrorMessageManager* Get(UtilityPortableErrorMessageManager* mgr, bool replace);
    /// Makes `mgr` the current manager, or the default one when `mgr` is null. Always true. Ownership stays
    /// with the caller.
    static bool Register(UtilityPortableErrorMessageManager* mgr);
};

/// One calendar time, as a clock on the wall shows it. Plain data, not checked.
class BRIMPORTABLE_API BrimSystemTime {
public:
    /// `month` from 1, `dayOfWeek` from 0 (Sunday), `day` from 1.
    BrimSystemTime(short year, unsigned short month, unsigned short dayOfWeek, unsigned short day,
                   unsigned short hour, unsigned short minute, unsigned short second,
                   unsigned short milliseconds) noexcept
        : m_systemTime{year, month, dayOfWeek, day, hour, minute, second, milliseconds} {}

    /// The parts, as they were given.
    short year() const noexcept { return m_systemTime.year; }
    unsigned short month() const noexcept { return m_systemTime.month; }
    unsigned short dayOfWeek() const noexcept { return m_systemTime.dayOfWeek; }
    unsigned short day() const noexcept { return m_systemTime.day; }
    unsigned short hour() const noexcept { return m_systemTime.hour; }
    unsigned short minute() const noexcept { return m_systemTime.minute; }
    unsigned short second() const noexcept { return m_systemTime.second; }
    unsigned short milliseconds() const noexcept { return m_systemTime.milliseconds; }

private:
    struct Record {
        short year;
        unsigned short month;
        unsigned short dayOfWeek;
        unsigned short day;
        unsigned short hour;
        unsigned short minute;
        unsigned short second;
        unsigned short milliseconds;
    };
    Record m_systemTime;
};

/// Finds writers that overlap other writers or readers of data that nobody locks. A debugging aid, not a
/// lock: it acts in a library built with the CMake option BRIM_CHECKS and does nothing otherwise. There an
/// overlap is an assertion failure.
class BRIMPORTABLE_API SynchronizationChecker {
public:
    constexpr SynchronizationChecker() noexcept = default;

    /// Brackets a write.
    void acquireWriter();
    void releaseWriter();
    /// Brackets a read; reads may overlap each other.
    void acquireReadonlyProtection() const;
    void releaseReadonlyProtection() const;

private:
    mutable int m_users = 0; ///< readers at work, or -1 while a writer is
};

/// Facts about a locale, for OSAbstraction::g_wgetlocaleinfoFuncPtr, in the Windows numbering. The codes of
/// days, months and their abbreviations run on from the first.
enum BrimLocaleItem {
    kLocaleListSeparator = 0x0C,        ///< "," or, where the decimal point is a comma, ";"
    kLocaleDecimalPoint = 0x0E,         ///< RADIXCHAR
    kLocaleThousandsSeparator = 0x0F,   ///< THOUSEP
    kLocaleCurrencySymbol = 0x14,       ///< of CRNCYSTR, without its sign of position
    kLocaleShortDateFormat = 0x1F,      ///< D_FMT, a format of strftime(3)
    kLocaleLongDateFormat = 0x20,       ///< D_T_FMT
    kLocaleAm = 0x28,                   ///< AM_STR
    kLocalePm = 0x29,                   ///< PM_STR
    kLocaleDayName = 0x2A,              ///< Monday; up to Sunday, 0x30
    kLocaleAbbreviatedDayName = 0x31,   ///< Monday; up to Sunday, 0x37
    kLocaleMonthName = 0x38,            ///< January; up to December, 0x43
    kLocaleAbbreviatedMonthName = 0x44, ///< January; up to December, 0x4F
    kLocaleName = 0x5C,                 ///< the system's name of the locale
    kLocaleTimeFormat = 0x1003,         ///< T_FMT
    kLocaleCodeSet = 0x1004             ///< CODESET
};

/// Process-wide settings and the table of platform wrappers. A host sets them once at start-up, before other
/// threads use the library.
namespace OSAbstraction {

/// The code page of the process's narrow text, which library callers pass for it. 0, the first value, stands
/// for the page of the process's locale (SystemUtility::GetACP).
extern BRIMPORTABLE_API unsigned int g_clientCodePage;

/// The locale that the wrappers below use where the caller gives none: a sort locale id of the locale file,
/// or 0, the first value, for the process's own locale.
extern BRIMPORTABLE_API unsigned int g_serverLocaleID;

/// How the compare wrappers order texts: kSortLinguistic, the first value, or kSortBinary.
enum SortLocaleType {
    kSortLinguistic = 0, ///< the collation of the locale
    kSortBinary = 1      ///< the numeric order of the characters
};
/// A SortLocaleType; 0 at first.
extern BRIMPORTABLE_API int g_sortLocaleType;

// The system calls under SystemUtility, each at first the wrapper of the same name below, where the result is
// told. A host may put its own functions in their place.

/// The system calls under SystemUtility: each at first the WRAP_ function of the same name.
extern BRIMPORTABLE_API int (*g_wopenFuncPtr)(const wchar_t* path, int flags, int mode);
extern BRIMPORTABLE_API std::FILE* (*g_wfopenFuncPtr)(const wchar_t* path, const wchar_t* mode);
extern BRIMPORTABLE_API int (*g_wremoveFuncPtr)(const wchar_t* path);
extern BRIMPORTABLE_API int (*g_wrmdirFuncPtr)(const wchar_t* path);
extern BRIMPORTABLE_API int (*g_wstatFuncPtr)(const wchar_t* path, struct stat* record);
extern BRIMPORTABLE_API wchar_t* (*g_wgetcwdFuncPtr)(wchar_t* buffer, int length);
extern BRIMPORTABLE_API int (*g_wchdirFuncPtr)(const wchar_t* path);
extern BRIMPORTABLE_API void (*g_wlogerrorFuncPtr)(bool toSystemLog, const wchar_t* message);
extern BRIMPORTABLE_API int (*g_wcomparestringFuncPtr)(bool ignoreCase, const wchar_t* a, int aLength,
                                                       const wchar_t* b, int bLength);
extern BRIMPORTABLE_API int (*g_ncomparestringFuncPtr)(bool ignoreCase, const char* a, int aLength,
                                                       const char* b, int bLength);
extern BRIMPORTABLE_API int (*g_wgetlocaleinfoFuncPtr)(unsigned int locale, int item, wchar_t* buffer,
                                                       int length);
extern BRIMPORTABLE_API int (*g_wgetdateformatFuncPtr)(unsigned int locale, const BrimSystemTime* time,
                                                       const wchar_t* pattern, wchar_t* buffer, int length);
extern BRIMPORTABLE_API int (*g_wgettimeformatFuncPtr)(unsigned int locale, const BrimSystemTime* time,
                                                       const wchar_t* pattern, wchar_t* buffer, int length);

} // namespace OSAbstraction

// ---- The wrappers -----------------------------------------------------------------------------------------
// Each converts its texts, calls the system, and returns the system's result, with errno set on failure.
// Paths are converted to the process's code page (SystemUtility::GetMultiByteCodePage), except by WRAP_wopen:
// a character that the page lacks becomes "?", an unknown page fails with EILSEQ, a null path with EFAULT.
// Any thread may call.

/// open(2), the path in UTF-8 whatever the process's code page is.
BRIMPORTABLE_API int WRAP_wopen(const wchar_t* path, int flags, int mode);
/// fopen(3).
BRIMPORTABLE_API std::FILE* WRAP_wfopen(const wchar_t* path, const wchar_t* mode);
/// unlink(2): a directory is not removed.
BRIMPORTABLE_API int WRAP_wremove(const wchar_t* path);
/// rmdir(2).
BRIMPORTABLE_API int WRAP_wrmdir(const wchar_t* path);
/// stat(2).
BRIMPORTABLE_API int WRAP_wstat(const wchar_t* path, struct stat* record);
/// getcwd(3) into `buffer` of `length` characters; returns `buffer`, or null.
BRIMPORTABLE_API wchar_t* WRAP_wgetcwd(wchar_t* buffer, int length);
/// chdir(2).
BRIMPORTABLE_API int WRAP_wchdir(const wchar_t* path);

/// Writes the message and a line feed to standard error and, on request, the first 1023 bytes of the message
/// to the system log (identity "Solace", facility LOG_DAEMON, priority LOG_ERR). Nothing for a null or empty
/// message, nor while VANTA_HX_SYSTEM_LOGGING is set to anything but a truth word.
BRIMPORTABLE_API void WRAP_wlogerror(bool toSystemLog, const wchar_t* message);

/// Compares two texts in the order of OSAbstraction::g_sortLocaleType; the collation is that of the locale
/// g_serverLocaleID. A length of -1 stands for a zero-terminated text, a null text for an empty one. Returns
/// a negative number, 0 or a positive one.
BRIMPORTABLE_API int WRAP_wcomparestring(bool ignoreCase, const wchar_t* a, int aLength, const wchar_t* b,
                                         int bLength);
/// The same for narrow texts in the process's code page.
BRIMPORTABLE_API int WRAP_ncomparestring(bool ignoreCase, const char* a, int aLength, const char* b,
                                         int bLength);

/// Puts the fact `item`, a BrimLocaleItem, and its zero into `buffer` of `length` characters and returns how
/// many that are, the zero included; with a length of 0, how many are needed. 0 when it does not fit (errno
/// ERANGE). `locale` is a sort locale id of the locale file, 0 for g_serverLocaleID; one that is unknown or
/// not installed is 0 with EINVAL. An item that is not listed is an assertion failure.
BRIMPORTABLE_API int WRAP_wgetlocaleinfo(unsigned int locale, int item, wchar_t* buffer, int length);

/// Formats a date; arguments and result as of WRAP_wgetlocaleinfo. In the pattern stand d, dd (day), ddd,
/// dddd (its name, short and long), M, MM (month), MMM, MMMM (its name), y, yy (year of the century), yyyy
/// (year); text in single quotes, and every other character, stands for itself, and two single quotes for
/// one. A null pattern is the locale's own format. A month or day out of range is 0 with EINVAL.
BRIMPORTABLE_API int WRAP_wgetdateformat(unsigned int locale, const BrimSystemTime* time,
                                         const wchar_t* pattern, wchar_t* buffer, int length);
/// Formats a time of day in the same manner: h, hh (hour to 12), H, HH (to 24), m, mm, s, ss, f, ff, fff
/// (tenths, hundredths, thousandths of a second), t, tt (the mark of morning or afternoon, its first
/// character or whole).
BRIMPORTABLE_API int WRAP_wgettimeformat(unsigned int locale, const BrimSystemTime* time,
                                         const wchar_t* pattern, wchar_t* buffer, int length);
