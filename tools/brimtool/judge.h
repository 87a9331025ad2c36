// Judges whether text of an encoding is well formed. The library's decoders are lenient, so that a file's
// faults are found before its text reaches them.
#pragma once

#include <cstddef>
#include <memory>

namespace brimtool {

class Judge {
public:
    /// `wellFormed` bytes of complete characters at the start, then a sequence of `rest` bytes (0 when there
    /// is none) that is malformed, or `cut` by the end of the text. At most kLongestCut bytes follow the
    /// well-formed ones in a text that is cut.
    struct Verdict {
        std::size_t wellFormed;
        std::size_t rest;
        bool cut;
    };
    static constexpr std::size_t kLongestCut = 3;

    virtual ~Judge() = default;
    Judge() = default;
    Judge(const Judge&) = delete;
    Judge& operator=(const Judge&) = delete;

    virtual Verdict judge(const char* text, std::size_t length) const = 0;
    /// The bytes that the first `count` units of a well-formed text took.
    virtual std::size_t bytesOf(const wchar_t* units, std::size_t count) const = 0;
};

/// The judge of a built-in code page.
std::unique_ptr<Judge> makeJudge(int codePage);

} // namespace brimtool
