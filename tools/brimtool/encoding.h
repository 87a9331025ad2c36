// An encoding as the command line names it: a built-in code page, or iconv:NAME.
#pragma once

#include "coders.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

namespace brimtool {

class Encoding {
public:
    /// The encoding of `text`: a code page as findCodePage() knows it, or an encoding of iconv's behind
    /// "iconv:". Nothing for an unknown one.
    static std::optional<Encoding> find(const std::string& text);
    /// What to tell of a `text` that find() does not know.
    static std::string explainUnknown(const std::string& text);
    /// The encoding of the process's narrow text.
    static Encoding ofProcess();

    /// `tellsBytes`: Decoder::bytesOf() will be asked.
    std::unique_ptr<Decoder> makeDecoder(bool tellsBytes) const;
    std::unique_ptr<Encoder> makeEncoder() const;

    /// "malformed UTF-8 (FF)", for a sequence of `length` bytes.
    std::string describeMalformed(const char* sequence, std::size_t length, bool cut) const;
    /// "U+20AC does not exist in ISO-8859-1", for a character of one unit or two.
    std::string describeLacking(const wchar_t* character, std::size_t units) const;

private:
    explicit Encoding(int codePage);
    explicit Encoding(std::string iconvName) : m_name(std::move(iconvName)) {}

    std::optional<int> m_codePage; // none for an encoding of iconv's
    std::string m_name;
};

/// "U+1F600", for a character of one unit or two.
std::string codePointText(const wchar_t* character, std::size_t units);

} // namespace brimtool
