#include "SUPTranscodeIconv_UNIX.h"

#include "LocaleFileMaps.h"
#include "Utility/Generic/Portable/SUPOSBase.h"
#include "kernels/utf8.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <iterator>

namespace sup::transcodeimpl {

namespace {

using ErrorManager = UtilityPortableErrorMessageManager;

constexpr std::size_t kTooSmall = static_cast<std::size_t>(-1);
constexpr std::size_t kFailed = static_cast<std::size_t>(-1); // of iconv
constexpr std::size_t kLongestCharacter = 8;
constexpr const char* kThisFile = "server/Utility/Generic/Portable/Src/SUPTranscodeIconv_UNIX.cpp";
constexpr int kAllocationLine = 25;
constexpr const char* kWideSide = "UTF-16LE";

const iconv_t kNoConverter =
    reinterpret_cast<iconv_t>(-1); // NOLINT(performance-no-int-to-ptr): as POSIX has it

// A converter on loan.
class Loan {
public:
    explicit Loan(IconvPool& pool) : m_pool(pool), m_converter(pool.borrow()) {}
    ~Loan() {
        if (m_converter != kNoConverter) {
            m_pool.giveBack(m_converter);
        }
    }
    Loan(const Loan&) = delete;
    Loan& operator=(const Loan&) = delete;
    iconv_t get() const { return m_converter; }

private:
    IconvPool& m_pool;
    iconv_t m_converter;
};

// The bytes of a letter, which is what a decoder skips at a fault to stay in step.
std::size_t unitOf(iconv_t encoder) {
    std::size_t unit = 0;
    for (int i = 0; i < 2; ++i) { // the first may bring a header
        char letter[] = {'A', 0};
        char* in = letter;
        std::size_t inLeft = sizeof(letter);
        char bytes[32];
        char* out = bytes;
        std::size_t outLeft = sizeof(bytes);
        ::iconv(encoder, &in, &inLeft, &out, &outLeft);
        unit = sizeof(bytes) - outLeft;
    }
    return std::clamp<std::size_t>(unit, 1, 4);
}

// Reports each kind of failure once.
class Reporter {
public:
    explicit Reporter(const char* name) : m_name(name) {}
    void report(int error) {
        const int code = codeOf(error);
        bool& done = m_done[-code];
        if (!done) {
            done = true;
            ErrorManager::Get(nullptr, false)->ThrowErrorMessage(code, m_name, nullptr);
        }
    }

private:
    static int codeOf(int error) {
        switch (error) {
        case E2BIG:
            return ErrorManager::E_Portable_LackOfSpace;
        case EINVAL:
            return ErrorManager::E_Portable_IncompleteCharOrShiftSeq;
        case EILSEQ:
            return ErrorManager::E_Portable_IllegalCharOrShiftSeq;
        case EBADF:
            return ErrorManager::E_Portable_BadF;
        default:
            return ErrorManager::E_Portable_UnknownIconvErr;
        }
    }

    const char* m_name;
    bool m_done[8] = {};
};

// The next character of [src, end): the source units it takes, and its UTF-16 form. No form for a number that
// is no code point.
struct WideCharacter {
    std::size_t units;
    std::size_t length;
    std::uint16_t form[2];
};

WideCharacter nextCharacter(const wchar_t* src, const wchar_t* end) {
    const auto c = static_cast<char32_t>(*src);
    if (c > kernels::kLastCodePoint) {
        return {1, 0, {}};
    }
    if (c >= kernels::kFirstSupplementary) {
        wchar_t pair[2];
        kernels::writeUnits(c, pair);
        return {1, 2, {static_cast<std::uint16_t>(pair[0]), static_cast<std::uint16_t>(pair[1])}};
    }
    if (kernels::isHighSurrogate(c) && end - src > 1 &&
        kernels::isLowSurrogate(static_cast<char32_t>(src[1]))) {
        return {2, 2, {static_cast<std::uint16_t>(c), static_cast<std::uint16_t>(src[1])}};
    }
    return {1, 1, {static_cast<std::uint16_t>(c), 0}};
}

// A stretch of the source in UTF-16, and where in the source each of its units comes from.
struct Stretch {
    std::uint16_t units[512];
    std::uint16_t origin[512];
    std::size_t length = 0;
    std::size_t consumed = 0; // source units

    // Takes characters up to one that has no form.
    void fill(const wchar_t* src, const wchar_t* end) {
        length = 0;
        const wchar_t* p = src;
        while (p != end && length + 2 <= std::size(units)) {
            const WideCharacter character = nextCharacter(p, end);
            if (character.length == 0) {
                break;
            }
            for (std::size_t i = 0; i < character.length; ++i) {
                units[length] = character.form[i];
                origin[length++] = static_cast<std::uint16_t>(p - src);
            }
            p += character.units;
        }
        consumed = static_cast<std::size_t>(p - src);
    }
};

} // namespace

IconvPool::~IconvPool() {
    for (const iconv_t converter : m_idle) {
        ::iconv_close(converter);
    }
}

iconv_t IconvPool::borrow() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_idle.empty()) {
            const iconv_t converter = m_idle.back();
            m_idle.pop_back();
            ::iconv(converter, nullptr, nullptr, nullptr, nullptr);
            return converter;
        }
    }
    return ::iconv_open(m_to.c_str(), m_from.c_str());
}

void IconvPool::giveBack(iconv_t converter) noexcept {
    try {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_idle.push_back(converter);
    } catch (...) { // no memory to keep it
        ::iconv_close(converter);
    }
}

TranscoderIconv::TranscoderIconv(const char* iconvName)
    : m_name(iconvName), m_decoders(kWideSide, iconvName), m_encoders(iconvName, kWideSide) {
    const Loan encoder(m_encoders);
    m_unit = encoder.get() == kNoConverter ? 1 : unitOf(encoder.get());
}

auto TranscoderIconv::multibyteToUnicode(const char* src, size_type srcLen, wide_char* dst, size_type dstLen,
                                         state* /*ctx*/) const -> size_type {
    Reporter reporter(m_name.c_str());
    const Loan converter(m_decoders);
    if (converter.get() == kNoConverter) {
        reporter.report(EBADF);
        return 0;
    }
    char* in = const_cast<char*>(src); // iconv only reads it
    std::size_t inLeft = srcLen;
    size_type written = 0;
    for (bool isLast = srcLen == 0; !isLast;) {
        // The last turn asks for what the converter still holds: some wait for a mark that may follow.
        isLast = inLeft == 0;
        constexpr std::size_t kRoom = 1024;
        std::uint16_t units[kRoom + 1]; // and a replacement
        char* out = reinterpret_cast<char*>(units);
        std::size_t outLeft = kRoom * sizeof(*units);
        const std::size_t result =
            ::iconv(converter.get(), isLast ? nullptr : &in, isLast ? nullptr : &inLeft, &out, &outLeft);
        const int error = result == kFailed ? errno : 0;
        std::size_t count = kRoom - outLeft / sizeof(*units);
        if (error != 0 && error != E2BIG) {
            reporter.report(error);
            units[count++] = static_cast<std::uint16_t>(kernels::kReplacement);
            const std::size_t skipped = error == EILSEQ ? std::min(m_unit, inLeft) : inLeft;
            in += skipped;
            inLeft -= skipped;
        }
        if (count > dstLen - written) {
            reporter.report(E2BIG);
            return kTooSmall;
        }
        std::copy(units, units + count, dst + written);
        written += count;
    }
    return written;
}

auto TranscoderIconv::unicodeToMultibyte(const wide_char* src, size_type srcLen, char* dst, size_type dstLen,
                                         state* /*ctx*/, callback cb, callbackParam cbParam) const
    -> size_type {
    Reporter reporter(m_name.c_str());
    const Loan converter(m_encoders);
    if (converter.get() == kNoConverter) {
        reporter.report(EBADF);
        return 0;
    }
    const wide_char* const end = src + srcLen;
    char* out = dst;
    std::size_t outLeft = dstLen;
    // Writes "?" through the converter, which knows the shift state, or what the callback says.
    const auto replace = [&](const wide_char* character, std::size_t units) {
        if (cb != nullptr) {
            // What the callback writes is text in the first shift state, after all that came before.
            if (::iconv(converter.get(), nullptr, nullptr, &out, &outLeft) == kFailed) {
                return false;
            }
            const std::size_t written = cb(cbParam, character, units, out, outLeft);
            if (written > outLeft) { // -1 too
                return false;
            }
            out += written;
            outLeft -= written;
            return true;
        }
        reporter.report(EILSEQ);
        char mark[] = {'?', 0};
        char* in = mark;
        std::size_t inLeft = sizeof(mark);
        return ::iconv(converter.get(), &in, &inLeft, &out, &outLeft) != kFailed;
    };
    Stretch stretch;
    while (src != end) {
        stretch.fill(src, end);
        char* in = reinterpret_cast<char*>(stretch.units);
        std::size_t inLeft = stretch.length * sizeof(*stretch.units);
        if (inLeft != 0 && ::iconv(converter.get(), &in, &inLeft, &out, &outLeft) == kFailed && inLeft != 0) {
            const int error = errno;
            if (error != EILSEQ && error != EINVAL) {
                reporter.report(error);
                return error == E2BIG ? kTooSmall : static_cast<size_type>(out - dst);
            }
            src += stretch.origin[stretch.length - inLeft / sizeof(*stretch.units)];
        } else {
            src += stretch.consumed;
            if (src == end || stretch.length != 0) {
                continue;
            }
        }
        const std::size_t units = nextCharacter(src, end).units;
        if (!replace(src, units)) {
            reporter.report(E2BIG);
            return kTooSmall;
        }
        src += units;
    }
    if (::iconv(converter.get(), nullptr, nullptr, &out, &outLeft) ==
        kFailed) { // back to the first shift state
        reporter.report(errno);
        return kTooSmall;
    }
    return static_cast<size_type>(out - dst);
}

auto TranscoderIconv::getMultibyteFactor() const -> size_type { return kLongestCharacter; }

bool TranscoderIconv::isUnicodeCompletelyRepresentable() const { return false; }

TranscoderImplBase* CreateIconvTranscoder(const char* iconvName) {
    for (const auto& [to, from] : {std::pair(kWideSide, iconvName), std::pair(iconvName, kWideSide)}) {
        const iconv_t converter = ::iconv_open(to, from);
        if (converter == kNoConverter) {
            ErrorManager::Get(nullptr, false)
                ->ThrowErrorMessage(ErrorManager::E_Portable_EncodingUnsupported, iconvName, nullptr);
            return nullptr;
        }
        ::iconv_close(converter);
    }
    return new (kThisFile, kAllocationLine) TranscoderIconv(iconvName);
}

TranscoderImplBase* CreateIconvTranscoder(int encoding) {
    if (const char* const identifier = iconvIdentifierOf(encoding)) {
        return CreateIconvTranscoder(identifier);
    }
    char name[32];
    std::snprintf(name, sizeof(name), "CP%d", encoding);
    return CreateIconvTranscoder(name);
}

} // namespace sup::transcodeimpl
