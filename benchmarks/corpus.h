// The real texts that the benchmarks run on, from files that Debian packages bring (scripts/bootstrap
// installs them). A text whose file is missing is left out, and one line on standard error names the package.
#pragma once

#include <cstddef>
#include <iconv.h>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

/// Every text is at least this long; short files are repeated.
constexpr std::size_t kTextBytes = std::size_t{1} << 20;

struct Text {
    std::string name;
    std::string bytes;
};

/// An open iconv(3) conversion. std::runtime_error when there is no such encoding.
class Converter {
public:
    Converter(const char* to, const char* from);
    ~Converter();
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    /// Converts all of `src`; returns the bytes written, or -1 when the text is malformed, not representable
    /// or larger than `room`.
    std::size_t convert(const void* src, std::size_t bytes, void* dst, std::size_t room) const;

private:
    iconv_t m_conversion;
};

/// All texts there are, in UTF-8; read on the first call.
const std::vector<Text>& utf8Texts();

/// The text of `name`; null when it is left out.
const Text* findUtf8Text(std::string_view name);

/// A text in another encoding, under its iconv(3) name: as shipped where a file is, otherwise those lines of
/// a UTF-8 text that the encoding can represent. Empty when its file is missing.
Text encodedText(const char* encoding);

/// `text` with about one byte in `period` overwritten by another value; the same bytes in every run.
std::string damaged(std::string text, std::size_t period);

/// Well-formed UTF-8 as whole code points, and as UTF-16 code units.
std::wstring toCodePoints(std::string_view utf8);
std::wstring toUnits(std::string_view utf8);

/// Up to `count` consecutive slices of at most `bytes` bytes, cut between characters.
std::vector<std::string_view> slices(std::string_view utf8, std::size_t bytes, std::size_t count);

} // namespace bench
