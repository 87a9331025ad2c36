// The text family (buffers, views, byte strings, print writers) against the standard library, {fmt} and plain
// loops.
//
// All in a process of one thread: the copies of shared texts leave out the lock prefix, ours and those of
// std::shared_ptr alike.
#include "corpus.h"

#include "Utility/Generic/Portable/PrintWriterBase.h"
#include "Utility/Generic/Portable/RefString.h"
#include "Utility/Generic/Portable/SUPBString.h"
#include "Utility/Generic/Portable/StringBuffer.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <charconv>
#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <dlfcn.h>
#include <fmt/compile.h>
#include <fmt/xchar.h>
#include <functional>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace {

std::size_t lengthArgument(const benchmark::State& state) { return static_cast<std::size_t>(state.range(0)); }

// A benchmark whose answer differs from the expected one would tell nothing; called before the measured loop.
void require(benchmark::State& state, bool right) {
    if (!right) {
        state.SkipWithError("wrong answer");
    }
}

// Keeps the compiler from knowing `value`. GCC 12 takes benchmark::DoNotOptimize of a pointer that is set
// anew in a loop from the wrong place.
template <class Scalar>
void hide(Scalar& value) {
    asm volatile("" : "+r"(value) : : "memory");
}

void countBytes(benchmark::State& state, std::size_t bytes) {
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}

// Numbers of up to as many bits as the argument says; never 0, which print writers leave out.
std::vector<unsigned long> numbersOfBits(const benchmark::State& state) {
    std::mt19937_64 random(20);
    std::vector<unsigned long> numbers(1024);
    for (unsigned long& number : numbers) {
        do {
            number = random() >> (64 - state.range(0));
        } while (number == 0);
    }
    return numbers;
}

std::wstring formatted(const wchar_t* format, unsigned long number) {
    wchar_t text[32];
    return std::wstring(text, static_cast<std::size_t>(std::swprintf(text, std::size(text), format, number)));
}

// ---- Buffers ----------------------------------------------------------------------------------------------

namespace buffers {

constexpr std::size_t kInline = 256;

class Brim {
public:
    void clear() { m_text.clear(); }
    void append(std::wstring_view piece) { m_text.append(piece.data(), piece.size()); }
    void appendDecimal(unsigned long number) { m_text.appendNumberAsDecimal(number); }
    void appendHex(unsigned int number) { m_text.appendNumberAsHex(number); }
    std::wstring_view view() const { return {m_text.begin(), m_text.length()}; }

private:
    sup::StringBufferTemplate<kInline, wchar_t> m_text;
};

class Fmt {
public:
    void clear() { m_text.clear(); }
    void append(std::wstring_view piece) { m_text.append(piece.data(), piece.data() + piece.size()); }
    void appendDecimal(unsigned long number) {
        fmt::format_to(std::back_inserter(m_text), FMT_COMPILE(L"{}"), number);
    }
    void appendHex(unsigned int number) {
        fmt::format_to(std::back_inserter(m_text), FMT_COMPILE(L"{:x}"), number);
    }
    std::wstring_view view() const { return {m_text.data(), m_text.size()}; }

private:
    fmt::basic_memory_buffer<wchar_t, kInline> m_text;
};

class Std {
public:
    Std() { m_text.reserve(kInline); }
    void clear() { m_text.clear(); }
    void append(std::wstring_view piece) { m_text.append(piece); }
    void appendDecimal(unsigned long number) { m_text.append(std::to_wstring(number)); }
    // std::to_chars writes narrow digits only.
    void appendHex(unsigned int number) {
        char digits[8];
        wchar_t wide[8];
        const char* const end = std::to_chars(std::begin(digits), std::end(digits), number, 16).ptr;
        std::copy(static_cast<const char*>(digits), end, wide);
        m_text.append(wide, static_cast<std::size_t>(end - digits));
    }
    std::wstring_view view() const { return m_text; }

private:
    std::wstring m_text;
};

constexpr std::wstring_view kLogLine[] = {
    L"2024-05-06 07:08:09.123456", L" [", L"4711", L"] WARNING ", L"storage.pages: ",
    L"the block was read again"};

template <class Buffer>
void appendLogLine(Buffer& buffer, const std::wstring_view* parts) {
    for (std::size_t i = 0; i < std::size(kLogLine); ++i) {
        buffer.append(parts[i]);
    }
}

template <class Buffer>
void BM_LogLine(benchmark::State& state) {
    Buffer sample;
    appendLogLine(sample, kLogLine);
    std::wstring expected;
    for (const std::wstring_view part : kLogLine) {
        expected += part;
    }
    require(state, sample.view() == expected);
    const std::wstring_view* parts = kLogLine;
    for (auto _ : state) {
        hide(parts);
        Buffer buffer;
        appendLogLine(buffer, parts);
        benchmark::DoNotOptimize(buffer.view().data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK_TEMPLATE(BM_LogLine, Brim);
BENCHMARK_TEMPLATE(BM_LogLine, Fmt);
BENCHMARK_TEMPLATE(BM_LogLine, Std);

template <class Buffer>
void BM_BufferAppendEight(benchmark::State& state) {
    const std::wstring piece(8, L'x');
    const auto fillUp = [&](Buffer& buffer) {
        for (std::size_t n = 0; n < lengthArgument(state); n += piece.size()) {
            const wchar_t* source = piece.data();
            hide(source);
            buffer.append({source, piece.size()});
        }
    };
    Buffer sample;
    fillUp(sample);
    require(state, sample.view() == std::wstring(lengthArgument(state), L'x'));
    for (auto _ : state) {
        Buffer buffer;
        fillUp(buffer);
        benchmark::DoNotOptimize(buffer.view().data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK_TEMPLATE(BM_BufferAppendEight, Brim)->Arg(1024);
BENCHMARK_TEMPLATE(BM_BufferAppendEight, Fmt)->Arg(1024);
BENCHMARK_TEMPLATE(BM_BufferAppendEight, Std)->Arg(1024);

// One number to an empty buffer at a time, by append(buffer, number).
template <class Buffer, class Append>
void appendNumbers(benchmark::State& state, const wchar_t* format, Append append) {
    const std::vector<unsigned long> numbers = numbersOfBits(state);
    Buffer buffer;
    require(state, std::all_of(numbers.begin(), numbers.end(), [&](unsigned long number) {
                buffer.clear();
                append(buffer, number);
                return buffer.view() == formatted(format, number);
            }));
    std::size_t next = 0;
    for (auto _ : state) {
        buffer.clear();
        append(buffer, numbers[next++ % numbers.size()]);
        benchmark::DoNotOptimize(buffer.view().data());
        benchmark::ClobberMemory();
    }
}

template <class Buffer>
void BM_AppendDecimal(benchmark::State& state) {
    appendNumbers<Buffer>(state, L"%lu",
                          [](Buffer& buffer, unsigned long number) { buffer.appendDecimal(number); });
}
BENCHMARK_TEMPLATE(BM_AppendDecimal, Brim)->Arg(7)->Arg(32)->Arg(64);
BENCHMARK_TEMPLATE(BM_AppendDecimal, Fmt)->Arg(7)->Arg(32)->Arg(64);
BENCHMARK_TEMPLATE(BM_AppendDecimal, Std)->Arg(7)->Arg(32)->Arg(64);

template <class Buffer>
void BM_AppendHex(benchmark::State& state) {
    appendNumbers<Buffer>(state, L"%lx", [](Buffer& buffer, unsigned long number) {
        buffer.appendHex(static_cast<unsigned int>(number));
    });
}
BENCHMARK_TEMPLATE(BM_AppendHex, Brim)->Arg(7)->Arg(32);
BENCHMARK_TEMPLATE(BM_AppendHex, Fmt)->Arg(7)->Arg(32);
BENCHMARK_TEMPLATE(BM_AppendHex, Std)->Arg(7)->Arg(32);

} // namespace buffers

// ---- Views ------------------------------------------------------------------------------------------------

namespace views {

using Brim = RefStringTemplate<wchar_t>;
using Std = std::wstring_view;

bool equal(const Brim& a, const Brim& b) { return a.isEqual(b); }
bool equal(Std a, Std b) { return a == b; }

template <class View>
void BM_ViewFindLastCharacter(benchmark::State& state) {
    const std::wstring characters = std::wstring(lengthArgument(state) - 1, L'x') + L'y';
    const View text(characters.data(), characters.size());
    wchar_t wanted = L'y';
    require(state, text.find(wanted) == characters.size() - 1);
    for (auto _ : state) {
        hide(wanted);
        benchmark::DoNotOptimize(text.find(wanted));
    }
    countBytes(state, characters.size() * sizeof(wchar_t));
}
BENCHMARK_TEMPLATE(BM_ViewFindLastCharacter, Brim)->Arg(16)->Arg(1024)->Arg(65536);
BENCHMARK_TEMPLATE(BM_ViewFindLastCharacter, Std)->Arg(16)->Arg(1024)->Arg(65536);

template <class View>
void BM_ViewRfindFirstCharacter(benchmark::State& state) {
    const std::wstring characters = L'y' + std::wstring(lengthArgument(state) - 1, L'x');
    const View text(characters.data(), characters.size());
    wchar_t wanted = L'y';
    require(state, text.rfind(wanted) == 0);
    for (auto _ : state) {
        hide(wanted);
        benchmark::DoNotOptimize(text.rfind(wanted));
    }
    countBytes(state, characters.size() * sizeof(wchar_t));
}
BENCHMARK_TEMPLATE(BM_ViewRfindFirstCharacter, Brim)->Arg(16)->Arg(1024)->Arg(65536);
BENCHMARK_TEMPLATE(BM_ViewRfindFirstCharacter, Std)->Arg(16)->Arg(1024)->Arg(65536);

// 64 Ki characters of a text, the pattern behind them and nowhere else.
template <class View>
void BM_ViewFindText(benchmark::State& state, const char* textName, const wchar_t* pattern) {
    std::wstring characters = bench::toUnits(bench::findUtf8Text(textName)->bytes).substr(0, 65536);
    for (std::size_t at = 0; (at = characters.find(pattern, at)) != std::wstring::npos;) {
        characters[at] = L' ';
    }
    characters += pattern;
    const View text(characters.data(), characters.size());
    View wanted(pattern);
    require(state, text.find(wanted) == characters.size() - wanted.length());
    for (auto _ : state) {
        benchmark::DoNotOptimize(wanted);
        benchmark::DoNotOptimize(text.find(wanted));
    }
    countBytes(state, characters.size() * sizeof(wchar_t));
}

void registerTextSearches() {
    struct Search {
        const char* name;
        const char* text;
        const wchar_t* pattern;
    };
    static constexpr Search kSearches[] = {
        {"rare_first_letter", "ascii", L"Xylophone"},
        {"common_word", "ascii", L"the letters"},
        {"russian_word", "russian", L"пересылка"},
        {"japanese_word", "japanese", L"かいもの"},
        {"long_pattern", "ascii", L"the terms and conditions for copying, and for what else"},
    };
    for (const Search& search : kSearches) {
        if (bench::findUtf8Text(search.text) == nullptr) {
            continue;
        }
        const auto add = [&search](const char* peer,
                                   void (*run)(benchmark::State&, const char*, const wchar_t*)) {
            const std::string name = std::string("BM_ViewFindText<") + peer + ">/" + search.name;
            benchmark::RegisterBenchmark(name.c_str(), [run, &search](benchmark::State& state) {
                run(state, search.text, search.pattern);
            });
        };
        add("Brim", &BM_ViewFindText<Brim>);
        add("Std", &BM_ViewFindText<Std>);
    }
}

template <class View>
void BM_ViewFindEightInForty(benchmark::State& state) {
    const View text(L"quick brown foxes jump over the lazy dog");
    View wanted(L"lazy dog");
    require(state, text.find(wanted) == 32);
    for (auto _ : state) {
        benchmark::DoNotOptimize(wanted);
        benchmark::DoNotOptimize(text.find(wanted));
    }
}
BENCHMARK_TEMPLATE(BM_ViewFindEightInForty, Brim);
BENCHMARK_TEMPLATE(BM_ViewFindEightInForty, Std);

template <class View>
void BM_ViewEquals(benchmark::State& state) {
    const std::wstring left(lengthArgument(state), L'x');
    const std::wstring right(left.c_str(), left.size());
    const View a(left.data(), left.size());
    const View b(right.data(), right.size());
    require(state, equal(a, b));
    for (auto _ : state) {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(equal(a, b));
    }
}
BENCHMARK_TEMPLATE(BM_ViewEquals, Brim)->Arg(16)->Arg(256);
BENCHMARK_TEMPLATE(BM_ViewEquals, Std)->Arg(16)->Arg(256);

template <class View>
void BM_ViewCompare(benchmark::State& state) {
    const std::wstring left = std::wstring(lengthArgument(state) - 1, L'x') + L'a';
    const std::wstring right = std::wstring(lengthArgument(state) - 1, L'x') + L'b';
    const View a(left.data(), left.size());
    const View b(right.data(), right.size());
    require(state, a.compare(b) < 0 && b.compare(a) > 0);
    for (auto _ : state) {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(a.compare(b));
    }
}
BENCHMARK_TEMPLATE(BM_ViewCompare, Brim)->Arg(16)->Arg(256);
BENCHMARK_TEMPLATE(BM_ViewCompare, Std)->Arg(16)->Arg(256);

} // namespace views

// ---- Byte strings -----------------------------------------------------------------------------------------

namespace bytes {

// Latin text: all characters below U+0100, beyond ASCII too.
std::wstring latinText(std::size_t length) {
    std::mt19937 random(30);
    std::wstring text(length, L'\0');
    std::generate(text.begin(), text.end(), [&] { return static_cast<wchar_t>(random() % 255 + 1); });
    return text;
}

std::string latinBytes(std::size_t length) {
    const std::wstring text = latinText(length);
    std::string narrow(length, '\0');
    std::transform(text.begin(), text.end(), narrow.begin(), [](wchar_t c) { return static_cast<char>(c); });
    return narrow;
}

struct Brim {
    using String = sup::ByteString<wchar_t>;

    /// Narrows to a block that is there, as construction does.
    class Narrower {
    public:
        explicit Narrower(std::size_t n) : m_data(Data::allocateData(n, 1)) {}
        ~Narrower() { m_data->deref(); }
        Narrower(const Narrower&) = delete;
        Narrower& operator=(const Narrower&) = delete;
        const char* narrow(const wchar_t* text, std::size_t n) {
            m_data->m_nLength = 0;
            m_data->append(text, n);
            return m_data->m_pStart;
        }

    private:
        using Data = sup::string_details::ByteStringData<wchar_t>;
        Data* m_data;
    };

    static String latin(std::size_t n) { return fresh(latinText(n).c_str(), n); }
    static String fresh(const wchar_t* text, std::size_t n) { return String(text, n); }
    static bool fits(const wchar_t* text, std::size_t n) { return sup::string_details::fitsInBytes(text, n); }
    static void widen(const String& text, wchar_t* out) { text.fill(out); }
    static std::uint32_t hash(const String& text) { return text.hash(); }
    static int compareToIgnoreCase(const String& a, const String& b) { return a.compareToIgnoreCase(b); }
};

struct Std {
    using String = std::string;

    static String latin(std::size_t n) { return latinBytes(n); }
    /// Empty when the text does not fit.
    static String fresh(const wchar_t* text, std::size_t n) {
        String result;
        if (fits(text, n)) {
            result.resize(n);
            std::transform(text, text + n, result.begin(), [](wchar_t c) { return static_cast<char>(c); });
        }
        return result;
    }
    static bool fits(const wchar_t* text, std::size_t n) {
        return std::all_of(text, text + n, [](wchar_t c) { return c >= 0 && c <= 0xFF; });
    }
    static std::size_t hash(const String& text) { return std::hash<String>()(text); }
    static int compareToIgnoreCase(const std::wstring& a, const std::wstring& b) {
        return ::wcscasecmp(a.c_str(), b.c_str());
    }
};

struct Loop {
    using String = std::string;

    class Narrower {
    public:
        explicit Narrower(std::size_t n) : m_bytes(n + 1) {}
        const char* narrow(const wchar_t* text, std::size_t n) {
            char* const to = m_bytes.data();
            for (std::size_t i = 0; i < n; ++i) {
                to[i] = static_cast<char>(text[i]);
            }
            to[n] = 0;
            return to;
        }

    private:
        std::vector<char> m_bytes;
    };

    static String latin(std::size_t n) { return latinBytes(n); }
    static bool fits(const wchar_t* text, std::size_t n) {
        std::uint32_t all = 0;
        for (std::size_t i = 0; i < n; ++i) {
            all |= static_cast<std::uint32_t>(text[i]);
        }
        return all <= 0xFF;
    }
    static void widen(const String& text, wchar_t* out) {
        const char* const from = text.data();
        const std::size_t n = text.size();
        for (std::size_t i = 0; i < n; ++i) {
            out[i] = static_cast<unsigned char>(from[i]);
        }
        out[n] = 0;
    }
    static std::uint32_t hash(const String& text) {
        std::uint32_t h = 0;
        for (const char c : text) {
            h = h * 101 + static_cast<unsigned char>(c);
        }
        return h;
    }
    static int compareToIgnoreCase(const std::wstring& a, const std::wstring& b) {
        const std::size_t common = std::min(a.size(), b.size());
        for (std::size_t i = 0; i < common; ++i) {
            const std::wint_t left = std::towlower(static_cast<std::wint_t>(a[i]));
            const std::wint_t right = std::towlower(static_cast<std::wint_t>(b[i]));
            if (left != right) {
                return left < right ? -1 : 1;
            }
        }
        return a.size() == b.size() ? 0 : a.size() < b.size() ? -1 : 1;
    }
};

template <class Peer>
void BM_ByteNewFromLatin(benchmark::State& state) {
    const std::wstring source = latinText(lengthArgument(state));
    const wchar_t* text = source.data();
    require(state, Peer::fresh(text, source.size()) == Peer::latin(source.size()));
    for (auto _ : state) {
        hide(text);
        auto fresh = Peer::fresh(text, source.size());
        benchmark::DoNotOptimize(fresh);
        benchmark::ClobberMemory();
    }
    countBytes(state, source.size() * sizeof(wchar_t));
}
BENCHMARK_TEMPLATE(BM_ByteNewFromLatin, Brim)->Arg(20)->Arg(1024);
BENCHMARK_TEMPLATE(BM_ByteNewFromLatin, Std)->Arg(20)->Arg(1024);

template <class Peer>
void BM_FitsInByte(benchmark::State& state) {
    std::wstring source = latinText(lengthArgument(state));
    source.back() = L'\u0100';
    require(state, !Peer::fits(source.data(), source.size()));
    source.back() = L'\u00FF';
    require(state, Peer::fits(source.data(), source.size()));
    const wchar_t* text = source.data();
    for (auto _ : state) {
        hide(text);
        benchmark::DoNotOptimize(Peer::fits(text, source.size()));
    }
    countBytes(state, source.size() * sizeof(wchar_t));
}
BENCHMARK_TEMPLATE(BM_FitsInByte, Brim)->Arg(1024)->Arg(65536);
BENCHMARK_TEMPLATE(BM_FitsInByte, Std)->Arg(1024)->Arg(65536);
BENCHMARK_TEMPLATE(BM_FitsInByte, Loop)->Arg(1024)->Arg(65536);

template <class Peer>
void BM_Narrow(benchmark::State& state) {
    const std::wstring source = latinText(lengthArgument(state));
    const wchar_t* text = source.data();
    typename Peer::Narrower narrower(source.size());
    require(state, narrower.narrow(text, source.size()) == latinBytes(source.size()));
    for (auto _ : state) {
        hide(text);
        benchmark::DoNotOptimize(narrower.narrow(text, source.size()));
        benchmark::ClobberMemory();
    }
    countBytes(state, source.size() * sizeof(wchar_t));
}
BENCHMARK_TEMPLATE(BM_Narrow, Brim)->Arg(1024)->Arg(65536);
BENCHMARK_TEMPLATE(BM_Narrow, Loop)->Arg(1024)->Arg(65536);

template <class Peer>
void BM_Widen(benchmark::State& state) {
    const auto text = Peer::latin(lengthArgument(state));
    std::vector<wchar_t> out(lengthArgument(state) + 1);
    Peer::widen(text, out.data());
    require(state, out.data() == latinText(lengthArgument(state)));
    for (auto _ : state) {
        Peer::widen(text, out.data());
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    countBytes(state, text.length());
}
BENCHMARK_TEMPLATE(BM_Widen, Brim)->Arg(1024)->Arg(65536);
BENCHMARK_TEMPLATE(BM_Widen, Loop)->Arg(1024)->Arg(65536);

// std::hash is another function: its answers are its own.
template <class Peer>
void BM_ByteHash(benchmark::State& state) {
    const auto text = Peer::latin(lengthArgument(state));
    if constexpr (!std::is_same_v<Peer, Std>) {
        require(state, Peer::hash(text) == Loop::hash(latinBytes(lengthArgument(state))));
    }
    for (auto _ : state) {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(Peer::hash(text));
    }
    countBytes(state, text.length());
}
BENCHMARK_TEMPLATE(BM_ByteHash, Brim)->Arg(32)->Arg(1024)->Arg(65536);
BENCHMARK_TEMPLATE(BM_ByteHash, Std)->Arg(32)->Arg(1024)->Arg(65536);
BENCHMARK_TEMPLATE(BM_ByteHash, Loop)->Arg(32)->Arg(1024)->Arg(65536);

struct SharedPtr {
    using String = std::shared_ptr<const std::string>;

    static String latin(std::size_t n) { return std::make_shared<const std::string>(latinBytes(n)); }
};

template <class Peer>
void BM_ByteCopyAndRelease(benchmark::State& state) {
    const auto original = Peer::latin(lengthArgument(state));
    require(state, typename Peer::String(original) == original);
    for (auto _ : state) {
        auto copy(original);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK_TEMPLATE(BM_ByteCopyAndRelease, Brim)->Arg(20)->Arg(1024);
BENCHMARK_TEMPLATE(BM_ByteCopyAndRelease, SharedPtr)->Arg(20)->Arg(1024);
BENCHMARK_TEMPLATE(BM_ByteCopyAndRelease, Std)->Arg(20)->Arg(1024);

template <class Peer>
void BM_ByteEquals(benchmark::State& state) {
    const auto a = Peer::latin(lengthArgument(state));
    const auto b = Peer::latin(lengthArgument(state));
    require(state, a == b && a != Peer::latin(lengthArgument(state) - 1));
    for (auto _ : state) {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(a == b);
    }
}
BENCHMARK_TEMPLATE(BM_ByteEquals, Brim)->Arg(16)->Arg(256)->Arg(1024);
BENCHMARK_TEMPLATE(BM_ByteEquals, Std)->Arg(16)->Arg(256)->Arg(1024);

template <class Peer>
void BM_ByteCompare(benchmark::State& state) {
    std::wstring source = latinText(lengthArgument(state));
    source.back() = L'a';
    const auto a = Peer::fresh(source.data(), source.size());
    source.back() = L'\u00E4';
    const auto b = Peer::fresh(source.data(), source.size());
    require(state, a.compare(b) < 0 && b.compare(a) > 0);
    for (auto _ : state) {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(a.compare(b));
    }
}
BENCHMARK_TEMPLATE(BM_ByteCompare, Brim)->Arg(16)->Arg(256)->Arg(1024);
BENCHMARK_TEMPLATE(BM_ByteCompare, Std)->Arg(16)->Arg(256)->Arg(1024);

// The sentence, repeated, against itself in upper case. The peers take it as wide text.
template <class Peer>
void compareToIgnoreCase(benchmark::State& state, std::wstring_view sentence) {
    std::wstring left;
    while (left.size() < lengthArgument(state)) {
        left += sentence;
    }
    left.resize(lengthArgument(state));
    std::wstring right(left);
    std::transform(right.begin(), right.end(), right.begin(), [](wchar_t c) {
        return static_cast<wchar_t>(std::towupper(static_cast<std::wint_t>(c)));
    });
    using Text = std::conditional_t<std::is_same_v<Peer, Brim>, Brim::String, std::wstring>;
    const Text a(left.c_str());
    const Text b(right.c_str());
    require(state, left != right && Peer::compareToIgnoreCase(a, b) == 0 &&
                       Peer::compareToIgnoreCase(a, Text((right + L'x').c_str())) < 0);
    for (auto _ : state) {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(Peer::compareToIgnoreCase(a, b));
    }
}

template <class Peer>
void BM_CompareToIgnoreCaseAscii(benchmark::State& state) {
    compareToIgnoreCase<Peer>(state, L"The quick brown Fox jumps over the lazy Dog. ");
}
BENCHMARK_TEMPLATE(BM_CompareToIgnoreCaseAscii, Brim)->Arg(16)->Arg(64)->Arg(4096);
BENCHMARK_TEMPLATE(BM_CompareToIgnoreCaseAscii, Std)->Arg(16)->Arg(64)->Arg(4096);
BENCHMARK_TEMPLATE(BM_CompareToIgnoreCaseAscii, Loop)->Arg(16)->Arg(64)->Arg(4096);

template <class Peer>
void BM_CompareToIgnoreCaseRussian(benchmark::State& state) {
    compareToIgnoreCase<Peer>(state, L"Съешь ещё этих мягких французских булок, да выпей Чаю. ");
}
BENCHMARK_TEMPLATE(BM_CompareToIgnoreCaseRussian, Brim)->Arg(16)->Arg(64)->Arg(4096);
BENCHMARK_TEMPLATE(BM_CompareToIgnoreCaseRussian, Std)->Arg(16)->Arg(64)->Arg(4096);
BENCHMARK_TEMPLATE(BM_CompareToIgnoreCaseRussian, Loop)->Arg(16)->Arg(64)->Arg(4096);

} // namespace bytes

// ---- Print writers ----------------------------------------------------------------------------------------

namespace writers {

constexpr std::size_t kRoom = 64;

/// Keeps what was written last.
class Brim : public sup::PrintWriterBase {
public:
    void addChars(const wchar_t* chars, size_type count) override {
        m_length = std::min(count, kRoom);
        std::wmemcpy(m_text, chars, m_length);
    }
    void flush() override {}
    void printDecimal(unsigned long number) { *this << number; }
    void printHex(unsigned long number) { appendNumberAsHex(number); }
    std::wstring_view view() const { return {m_text, m_length}; }

private:
    wchar_t m_text[kRoom] = {};
    std::size_t m_length = 0;
};

class Printf {
public:
    void printDecimal(unsigned long number) { keep(std::swprintf(m_text, kRoom, L"%lu", number)); }
    void printHex(unsigned long number) { keep(std::swprintf(m_text, kRoom, L"%lx", number)); }
    std::wstring_view view() const { return {m_text, m_length}; }

private:
    void keep(int length) { m_length = static_cast<std::size_t>(length); }

    wchar_t m_text[kRoom] = {};
    std::size_t m_length = 0;
};

template <class Writer, class Print>
void printNumbers(benchmark::State& state, const wchar_t* format, Print print) {
    const std::vector<unsigned long> numbers = numbersOfBits(state);
    Writer writer;
    require(state, std::all_of(numbers.begin(), numbers.end(), [&](unsigned long number) {
                print(writer, number);
                return writer.view() == formatted(format, number);
            }));
    std::size_t next = 0;
    for (auto _ : state) {
        print(writer, numbers[next++ % numbers.size()]);
        benchmark::DoNotOptimize(writer.view().data());
        benchmark::ClobberMemory();
    }
}

template <class Writer>
void BM_PrintDecimal(benchmark::State& state) {
    printNumbers<Writer>(state, L"%lu",
                         [](Writer& writer, unsigned long number) { writer.printDecimal(number); });
}
BENCHMARK_TEMPLATE(BM_PrintDecimal, Brim)->Arg(7)->Arg(32)->Arg(64);
BENCHMARK_TEMPLATE(BM_PrintDecimal, Printf)->Arg(7)->Arg(32)->Arg(64);

template <class Writer>
void BM_PrintHex(benchmark::State& state) {
    printNumbers<Writer>(state, L"%lx",
                         [](Writer& writer, unsigned long number) { writer.printHex(number); });
}
BENCHMARK_TEMPLATE(BM_PrintHex, Brim)->Arg(7)->Arg(32)->Arg(64);
BENCHMARK_TEMPLATE(BM_PrintHex, Printf)->Arg(7)->Arg(32)->Arg(64);

} // namespace writers

// An allocator library that is linked in would serve the peers too.
void requireMallocOfTheCLibrary() {
    Dl_info owner = {};
    dladdr(dlsym(RTLD_DEFAULT, "malloc"), &owner);
    if (owner.dli_fname == nullptr || std::strstr(owner.dli_fname, "libc.so") == nullptr) {
        std::fprintf(stderr, "malloc is not the C library's\n");
        std::exit(1);
    }
}

} // namespace

int main(int argc, char** argv) {
    requireMallocOfTheCLibrary();
    // The "C" locale knows no case beyond ASCII.
    if (std::setlocale(LC_CTYPE, "C.UTF-8") == nullptr) {
        std::fprintf(stderr, "there is no locale C.UTF-8\n");
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    views::registerTextSearches();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
