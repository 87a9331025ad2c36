#include "transcodersbtable.h"

#include "sbtable_pages.h"

#include <gtest/gtest.h>

#include <iconv.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace sup::transcodeimpl;

using brimtest::kPages;
using brimtest::Owner;
using brimtest::Page;
using brimtest::Reference;
using namespace brimtest::pages;

namespace {

constexpr std::size_t kTooSmall = static_cast<std::size_t>(-1);

using Callback = SUPTranscodeUntranslatableCharCallback;

// Where a page differs on purpose from the table that iconv has; kNone where iconv has nothing.
constexpr wchar_t kNone = -1;

struct Departure {
    const char* iconvName;
    unsigned char byte;
    wchar_t ours; // kNone: the byte is undefined here
    wchar_t iconvs;
};

const Departure kDepartures[] = {
    // The first edition; iconv follows the second.
    {"ISO-8859-7", 0xA1, 0x02BD, 0x2018},
    {"ISO-8859-7", 0xA2, 0x02BC, 0x2019},
    {"ISO-8859-7", 0xA4, kNone, 0x20AC},
    {"ISO-8859-7", 0xA5, kNone, 0x20AF},
    {"ISO-8859-7", 0xAA, kNone, 0x037A},
    // The C1 controls where the published table has nothing.
    {"CP1252", 0x81, 0x0081, kNone},
    {"CP1252", 0x8D, 0x008D, kNone},
    {"CP1252", 0x8F, 0x008F, kNone},
    {"CP1252", 0x90, 0x0090, kNone},
    {"CP1252", 0x9D, 0x009D, kNone},
    // The overline, and the private-use fill, which takes the places of the directional marks too.
    {"ISO-8859-8", 0xAF, 0x203E, 0x00AF},
    {"ISO-8859-8", 0xA1, 0xF79C, kNone},
    {"ISO-8859-8", 0xBF, 0xF79D, kNone},
    {"ISO-8859-8", 0xC0, 0xF79E, kNone},
    {"ISO-8859-8", 0xC1, 0xF79F, kNone},
    {"ISO-8859-8", 0xC2, 0xF7A0, kNone},
    {"ISO-8859-8", 0xC3, 0xF7A1, kNone},
    {"ISO-8859-8", 0xC4, 0xF7A2, kNone},
    {"ISO-8859-8", 0xC5, 0xF7A3, kNone},
    {"ISO-8859-8", 0xC6, 0xF7A4, kNone},
    {"ISO-8859-8", 0xC7, 0xF7A5, kNone},
    {"ISO-8859-8", 0xC8, 0xF7A6, kNone},
    {"ISO-8859-8", 0xC9, 0xF7A7, kNone},
    {"ISO-8859-8", 0xCA, 0xF7A8, kNone},
    {"ISO-8859-8", 0xCB, 0xF7A9, kNone},
    {"ISO-8859-8", 0xCC, 0xF7AA, kNone},
    {"ISO-8859-8", 0xCD, 0xF7AB, kNone},
    {"ISO-8859-8", 0xCE, 0xF7AC, kNone},
    {"ISO-8859-8", 0xCF, 0xF7AD, kNone},
    {"ISO-8859-8", 0xD0, 0xF7AE, kNone},
    {"ISO-8859-8", 0xD1, 0xF7AF, kNone},
    {"ISO-8859-8", 0xD2, 0xF7B0, kNone},
    {"ISO-8859-8", 0xD3, 0xF7B1, kNone},
    {"ISO-8859-8", 0xD4, 0xF7B2, kNone},
    {"ISO-8859-8", 0xD5, 0xF7B3, kNone},
    {"ISO-8859-8", 0xD6, 0xF7B4, kNone},
    {"ISO-8859-8", 0xD7, 0xF7B5, kNone},
    {"ISO-8859-8", 0xD8, 0xF7B6, kNone},
    {"ISO-8859-8", 0xD9, 0xF7B7, kNone},
    {"ISO-8859-8", 0xDA, 0xF7B8, kNone},
    {"ISO-8859-8", 0xDB, 0xF7B9, kNone},
    {"ISO-8859-8", 0xDC, 0xF7BA, kNone},
    {"ISO-8859-8", 0xDD, 0xF7BB, kNone},
    {"ISO-8859-8", 0xDE, 0xF7BC, kNone},
    {"ISO-8859-8", 0xFB, 0xF7BD, kNone},
    {"ISO-8859-8", 0xFC, 0xF7BE, kNone},
    {"ISO-8859-8", 0xFD, 0xF7BF, 0x200E},
    {"ISO-8859-8", 0xFE, 0xF7C0, 0x200F},
    {"ISO-8859-8", 0xFF, 0xF7C1, kNone},
};

// The C library's converter, one character at a time.
class Iconv {
public:
    Iconv(const char* to, const char* from) : m_descriptor(iconv_open(to, from)) {}
    Iconv(const Iconv&) = delete;
    Iconv& operator=(const Iconv&) = delete;
    ~Iconv() {
        if (isOpen()) {
            iconv_close(m_descriptor);
        }
    }

    bool isOpen() const { return m_descriptor != reinterpret_cast<iconv_t>(-1); }

    // True when `from` became exactly one `To`.
    template <class From, class To>
    bool convert(From from, To& to) {
        iconv(m_descriptor, nullptr, nullptr, nullptr, nullptr);
        char in[sizeof(From)];
        char out[sizeof(To)];
        std::memcpy(in, &from, sizeof(From));
        char* inAt = in;
        char* outAt = out;
        std::size_t inLeft = sizeof(in);
        std::size_t outLeft = sizeof(out);
        if (iconv(m_descriptor, &inAt, &inLeft, &outAt, &outLeft) != 0 || inLeft != 0 || outLeft != 0) {
            return false;
        }
        std::memcpy(&to, out, sizeof(To));
        return true;
    }

private:
    iconv_t m_descriptor;
};

// Copies of exactly the size of the text, so that a sanitizer sees a step beside it.
template <class Char>
std::unique_ptr<Char[]> exactCopy(const std::basic_string<Char>& text) {
    std::unique_ptr<Char[]> copy(new Char[text.size()]);
    std::copy(text.begin(), text.end(), copy.get());
    return copy;
}

std::optional<std::wstring> decode(const TranscoderImplBase& transcoder, const std::string& bytes) {
    const auto src = exactCopy(bytes);
    const std::unique_ptr<wchar_t[]> dst(new wchar_t[bytes.size()]);
    const std::size_t length =
        transcoder.multibyteToUnicode(src.get(), bytes.size(), dst.get(), bytes.size(), nullptr);
    if (length == kTooSmall) {
        return std::nullopt;
    }
    return std::wstring(dst.get(), length);
}

// `room` is the destination's length; the source's without one.
std::optional<std::string> encode(const TranscoderImplBase& transcoder, const std::wstring& units,
                                  std::optional<std::size_t> room = std::nullopt, Callback cb = nullptr,
                                  void* param = nullptr) {
    const auto src = exactCopy(units);
    const std::size_t dstLen = room.value_or(units.size());
    const std::unique_ptr<char[]> dst(new char[dstLen]);
    const std::size_t length =
        transcoder.unicodeToMultibyte(src.get(), units.size(), dst.get(), dstLen, nullptr, cb, param);
    if (length == kTooSmall) {
        return std::nullopt;
    }
    return std::string(dst.get(), length);
}

std::string encodedUnit(const TranscoderImplBase& transcoder, wchar_t unit) {
    return encode(transcoder, std::wstring(1, unit)).value_or("too small");
}

std::wstring decodedByte(const TranscoderImplBase& transcoder, unsigned byte) {
    return decode(transcoder, std::string(1, static_cast<char>(byte))).value_or(L"too small");
}

std::string oneByte(unsigned byte) { return {static_cast<char>(byte)}; }
std::wstring oneUnit(wchar_t unit) { return {unit}; }

// Answers each call with `answer`, as far as there is room, and returns `result` or the answer's length.
struct Responder {
    struct Call {
        std::wstring units;
        const wchar_t* src;
        const char* dst;
        std::size_t dstLen;
    };

    std::string answer;
    std::optional<std::size_t> result;
    std::vector<Call> calls;

    static std::size_t call(void* param, const wchar_t* src, std::size_t srcLen, char* dst,
                            std::size_t dstLen) {
        auto& self = *static_cast<Responder*>(param);
        self.calls.push_back({std::wstring(src, srcLen), src, dst, dstLen});
        std::memcpy(dst, self.answer.data(), std::min(self.answer.size(), dstLen));
        return self.result.value_or(self.answer.size());
    }
};

std::vector<std::wstring> unitsOf(const std::vector<Responder::Call>& calls) {
    std::vector<std::wstring> units;
    for (const Responder::Call& call : calls) {
        units.push_back(call.units);
    }
    return units;
}

class TranscoderSBTableOfPage : public ::testing::TestWithParam<Page> {
protected:
    const Owner m_transcoder = GetParam().make();
    const Reference m_reference{GetParam()};
};

std::string pageName(const ::testing::TestParamInfo<Page>& test) { return test.param.name; }

} // namespace

INSTANTIATE_TEST_SUITE_P(Pages, TranscoderSBTableOfPage, ::testing::ValuesIn(kPages), pageName);

TEST_P(TranscoderSBTableOfPage, HasRowsInByteOrderAndTheTerminator) {
    const UnicodeMultibyteMapping* row = GetParam().table;
    int lastByte = -1;
    for (std::size_t i = 0; i < GetParam().rows; ++i, ++row) {
        ASSERT_EQ(row->eDirection, kCP_Either) << i;
        ASSERT_EQ(row->nMBChars, 1U) << i;
        ASSERT_NE(row->cMBChars, nullptr) << i;
        EXPECT_EQ(row->cMBChars[1], '\0') << i;
        const int byte = static_cast<unsigned char>(row->cMBChars[0]);
        EXPECT_GT(byte, lastByte) << i;
        EXPECT_GE(static_cast<unsigned>(byte), GetParam().identityLimit) << i;
        lastByte = byte;
    }
    EXPECT_EQ(row->eDirection, kCP_End);
    EXPECT_EQ(row->wUnicodeChar, 0);
    EXPECT_EQ(row->cMBChars, nullptr);
    EXPECT_EQ(row->nMBChars, 0U);
}

TEST_P(TranscoderSBTableOfPage, ConvertsEveryRowBothWays) {
    for (const UnicodeMultibyteMapping* row = GetParam().table; row->eDirection != kCP_End; ++row) {
        const auto byte = static_cast<unsigned char>(row->cMBChars[0]);
        EXPECT_EQ(decodedByte(*m_transcoder, byte), oneUnit(row->wUnicodeChar)) << int{byte};
        EXPECT_EQ(encodedUnit(*m_transcoder, row->wUnicodeChar), oneByte(byte)) << int{byte};
    }
}

TEST_P(TranscoderSBTableOfPage, IsTheIdentityBelowItsLimit) {
    for (unsigned value = 0; value < GetParam().identityLimit; ++value) {
        const auto byte = static_cast<unsigned char>(value);
        EXPECT_EQ(decodedByte(*m_transcoder, byte), oneUnit(static_cast<wchar_t>(value))) << value;
        EXPECT_EQ(encodedUnit(*m_transcoder, static_cast<wchar_t>(value)), oneByte(byte)) << value;
    }
}

TEST_P(TranscoderSBTableOfPage, AgreesWithIconvExceptForItsDepartures) {
    Iconv toUnit("UTF-32LE", GetParam().iconvName);
    Iconv toByte(GetParam().iconvName, "UTF-32LE");
    ASSERT_TRUE(toUnit.isOpen() && toByte.isOpen()) << GetParam().iconvName;

    std::map<unsigned, wchar_t> unitOfByte;
    std::map<wchar_t, unsigned> byteOfUnit;
    for (unsigned byte = 0; byte < 256; ++byte) {
        wchar_t unit = 0;
        if (toUnit.convert(static_cast<unsigned char>(byte), unit)) {
            unitOfByte[byte] = unit;
        }
    }
    for (wchar_t unit = 0; unit <= 0xFFFF; ++unit) {
        unsigned char byte = 0;
        if (toByte.convert(unit, byte)) {
            byteOfUnit[unit] = byte;
        }
    }
    for (const Departure& departure : kDepartures) {
        if (std::strcmp(departure.iconvName, GetParam().iconvName) != 0) {
            continue;
        }
        const auto theirs = unitOfByte.find(departure.byte);
        EXPECT_EQ(theirs == unitOfByte.end() ? kNone : theirs->second, departure.iconvs)
            << "the list is out of date at " << int{departure.byte};
        unitOfByte.erase(departure.byte);
        byteOfUnit.erase(departure.iconvs);
        if (departure.ours != kNone) {
            unitOfByte[departure.byte] = departure.ours;
            EXPECT_TRUE(byteOfUnit.emplace(departure.ours, departure.byte).second) << int{departure.byte};
        }
    }

    for (unsigned byte = 0; byte < 256; ++byte) {
        const auto expected = unitOfByte.find(byte);
        EXPECT_EQ(decodedByte(*m_transcoder, byte),
                  oneUnit(expected == unitOfByte.end() ? wchar_t{0xFFFD} : expected->second))
            << byte;
    }
    for (wchar_t unit = 0; unit <= 0xFFFF; ++unit) {
        const auto expected = byteOfUnit.find(unit);
        const std::string bytes = expected == byteOfUnit.end() ? "?" : oneByte(expected->second);
        ASSERT_EQ(encodedUnit(*m_transcoder, unit), bytes) << static_cast<int>(unit);
    }
}

TEST_P(TranscoderSBTableOfPage, ConvertsTextsOfEveryLengthLikeTheReference) {
    constexpr unsigned kSeed = 4711;
    std::mt19937 random(kSeed);
    const auto below = [&random](unsigned limit) { return static_cast<unsigned>(random() % limit); };
    std::vector<wchar_t> mapped;
    for (const UnicodeMultibyteMapping* row = GetParam().table; row->eDirection != kCP_End; ++row) {
        mapped.push_back(row->wUnicodeChar);
    }
    const wchar_t odd[] = {0xD800,  0xDBFF, 0xDC00, 0xDFFF, 0xD83D, 0xDE00,  0xFFFD, 0xFFFF,
                           0x10000, 0x4E00, 0x8000, 0x7FFF, -1,     -0x8000, -129,   INT_MAX,
                           INT_MIN, 0x00A0, 0x00A1, 0x00A4, 0x00FF, 0x0100};
    // Of 64 characters, how many leave the identity part.
    for (const unsigned share : {0U, 1U, 4U, 32U, 64U}) {
        for (std::size_t length = 0; length <= 70; ++length) {
            for (int repeat = 0; repeat < 8; ++repeat) {
                std::string bytes;
                std::wstring units;
                for (std::size_t i = 0; i < length; ++i) {
                    const bool bSpecial = below(64) < share;
                    bytes += static_cast<char>(bSpecial ? 0x80 + below(128) : below(128));
                    if (!bSpecial) {
                        units += static_cast<wchar_t>(below(GetParam().identityLimit));
                    } else if (!mapped.empty() && below(2) == 0) {
                        units += mapped[below(static_cast<unsigned>(mapped.size()))];
                    } else {
                        units += odd[below(static_cast<unsigned>(std::size(odd)))];
                    }
                }
                const auto where = [&] {
                    return ::testing::Message()
                           << "seed " << kSeed << ", share " << share << ", length " << length;
                };
                ASSERT_EQ(decode(*m_transcoder, bytes), m_reference.decode(bytes)) << where();
                ASSERT_EQ(encode(*m_transcoder, units), m_reference.encode(units, "?")) << where();
                Responder one{"#", {}, {}};
                ASSERT_EQ(encode(*m_transcoder, units, {}, Responder::call, &one),
                          m_reference.encode(units, "#"))
                    << where();
                Responder three{"<?>", {}, {}};
                ASSERT_EQ(encode(*m_transcoder, units, 3 * length, Responder::call, &three),
                          m_reference.encode(units, "<?>"))
                    << where();
                Responder none{"", {}, {}};
                ASSERT_EQ(encode(*m_transcoder, units, {}, Responder::call, &none),
                          m_reference.encode(units, ""))
                    << where();
            }
        }
    }
}

TEST_P(TranscoderSBTableOfPage, SeesOneSpecialCharacterAtAnyPlaceOfALongRun) {
    for (const wchar_t special :
         {wchar_t{-1}, wchar_t{0x0100}, wchar_t{0x8000}, wchar_t{0x10041}, wchar_t{INT_MIN},
          static_cast<wchar_t>(GetParam().identityLimit), wchar_t{0x20AC}}) {
        for (std::size_t length = 1; length <= 48; ++length) {
            for (std::size_t at = 0; at < length; ++at) {
                std::wstring units(length, L'a');
                units[at] = special;
                ASSERT_EQ(encode(*m_transcoder, units), m_reference.encode(units, "?"))
                    << static_cast<int>(special) << " at " << at << " of " << length;
            }
        }
    }
    for (unsigned special = 0x80; special < 0x100; ++special) {
        for (std::size_t at = 0; at < 33; ++at) {
            std::string bytes(33, 'a');
            bytes[at] = static_cast<char>(special);
            ASSERT_EQ(decode(*m_transcoder, bytes), m_reference.decode(bytes)) << special << " at " << at;
        }
    }
}

TEST_P(TranscoderSBTableOfPage, ConvertsNothingToNothing) {
    Responder responder{"!", {}, {}};
    EXPECT_EQ(m_transcoder->multibyteToUnicode(nullptr, 0, nullptr, 0, nullptr), 0U);
    EXPECT_EQ(m_transcoder->unicodeToMultibyte(nullptr, 0, nullptr, 0, nullptr, nullptr, nullptr), 0U);
    EXPECT_EQ(m_transcoder->unicodeToMultibyte(nullptr, 0, nullptr, 0, nullptr, Responder::call, &responder),
              0U);
    char narrow[] = "xy";
    wchar_t wide[] = L"xy";
    EXPECT_EQ(m_transcoder->multibyteToUnicode("", 0, wide, 2, nullptr), 0U);
    EXPECT_EQ(m_transcoder->unicodeToMultibyte(L"", 0, narrow, 2, nullptr, nullptr, nullptr), 0U);
    EXPECT_STREQ(narrow, "xy");
    EXPECT_STREQ(wide, L"xy");
    EXPECT_TRUE(responder.calls.empty());
}

TEST_P(TranscoderSBTableOfPage, WritesNothingIntoADestinationThatIsOneShort) {
    for (std::size_t length = 1; length <= 70; ++length) {
        const std::string bytes(length, 'a');
        // Half of the text are pairs, for which less room would do.
        std::wstring units(length, L'a');
        for (std::size_t i = 0; i + 1 < length; i += 4) {
            units[i] = 0xD83D;
            units[i + 1] = 0xDE00;
        }
        std::wstring wide(length - 1, L'x');
        EXPECT_EQ(m_transcoder->multibyteToUnicode(bytes.data(), length, wide.data(), length - 1, nullptr),
                  kTooSmall);
        EXPECT_EQ(wide, std::wstring(length - 1, L'x'));

        std::string narrow(length - 1, 'x');
        EXPECT_EQ(m_transcoder->unicodeToMultibyte(units.data(), length, narrow.data(), length - 1, nullptr,
                                                   nullptr, nullptr),
                  kTooSmall);
        Responder responder{"", {}, {}};
        EXPECT_EQ(m_transcoder->unicodeToMultibyte(units.data(), length, narrow.data(), length - 1, nullptr,
                                                   Responder::call, &responder),
                  kTooSmall);
        EXPECT_EQ(narrow, std::string(length - 1, 'x'));
        EXPECT_TRUE(responder.calls.empty());
    }
}

TEST_P(TranscoderSBTableOfPage, LeavesTheRestOfALargerDestinationAlone) {
    for (std::size_t length = 0; length <= 40; ++length) {
        std::wstring wide(length + 40, L'x');
        ASSERT_EQ(m_transcoder->multibyteToUnicode(std::string(length, 'a').data(), length, wide.data(),
                                                   wide.size(), nullptr),
                  length);
        EXPECT_EQ(wide, std::wstring(length, L'a') + std::wstring(40, L'x'));

        // A pair becomes one byte, so the result ends before the source's length too.
        const std::wstring units = std::wstring{0xD83D, 0xDE00} + std::wstring(length, L'a');
        std::string narrow(units.size() + 40, 'x');
        ASSERT_EQ(m_transcoder->unicodeToMultibyte(units.data(), units.size(), narrow.data(), narrow.size(),
                                                   nullptr, nullptr, nullptr),
                  length + 1);
        EXPECT_EQ(narrow, "?" + std::string(length, 'a') + std::string(41, 'x'));
    }
}

TEST_P(TranscoderSBTableOfPage, WritesAQuestionMarkForUnitsOutsideTheCodePoints) {
    for (const wchar_t unit :
         {wchar_t{-1}, wchar_t{-128}, wchar_t{-0x10000}, wchar_t{INT_MIN}, wchar_t{INT_MIN + 0x41},
          wchar_t{0x10000}, wchar_t{0x10041}, wchar_t{0x110000}, wchar_t{INT_MAX}}) {
        EXPECT_EQ(encodedUnit(*m_transcoder, unit), "?") << static_cast<int>(unit);
    }
}

TEST_P(TranscoderSBTableOfPage, WritesOneQuestionMarkForAPairAndOneForEachLoneSurrogate) {
    const wchar_t high = 0xD83D;
    const wchar_t low = 0xDE00;
    struct Case {
        std::wstring units;
        const char* bytes;
    };
    const Case cases[] = {
        {{high, low}, "?"},
        {{0xD800, 0xDC00}, "?"},
        {{0xDBFF, 0xDFFF}, "?"},
        {{high}, "?"},
        {{low}, "?"},
        {{low, high}, "??"},
        {{high, high, low}, "??"},
        {{high, low, low}, "??"},
        {{high, low, high, low}, "??"},
        {{high, L'a'}, "?a"},
        {{high, 0xDBFF}, "??"},
        {{high, 0xE000}, "??"},
        {{L'a', high, low, L'b'}, "a?b"},
        {{L'a', high}, "a?"},
    };
    for (const Case& test : cases) {
        EXPECT_EQ(encode(*m_transcoder, test.units), test.bytes);
    }
    // Astride the ends of blocks.
    for (std::size_t before = 0; before <= 40; ++before) {
        const std::wstring units =
            std::wstring(before, L'a') + std::wstring{high, low} + std::wstring(20, L'b');
        EXPECT_EQ(encode(*m_transcoder, units), std::string(before, 'a') + "?" + std::string(20, 'b'))
            << before;
        EXPECT_EQ(encode(*m_transcoder, units.substr(0, before + 1)), std::string(before, 'a') + "?")
            << before;
    }
}

TEST_P(TranscoderSBTableOfPage, IgnoresTheThreadContext) {
    SUPTranscodeThreadContext context;
    SUPTranscodeThreadContext before;
    std::memset(&context, 0x5A, sizeof(context));
    std::memset(&before, 0x5A, sizeof(before));
    const std::string bytes = "a\xE1\xFF";
    wchar_t wide[3];
    ASSERT_EQ(m_transcoder->multibyteToUnicode(bytes.data(), 3, wide, 3, &context), 3U);
    EXPECT_EQ(std::wstring(wide, 3), m_reference.decode(bytes));
    char narrow[3];
    ASSERT_EQ(m_transcoder->unicodeToMultibyte(L"a\x4E00z", 3, narrow, 3, &context, nullptr, nullptr), 3U);
    EXPECT_EQ(std::string(narrow, 3), "a?z");
    EXPECT_EQ(std::memcmp(&context, &before, sizeof(context)), 0);
}

TEST_P(TranscoderSBTableOfPage, IgnoresTheFactoryParameter) {
    const Owner other(GetParam().factory(GetParam().table, 12345));
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte) {
        bytes += static_cast<char>(byte);
    }
    EXPECT_EQ(decode(*other, bytes), m_reference.decode(bytes));
    EXPECT_NE(other.get(), m_transcoder.get());
}

TEST_P(TranscoderSBTableOfPage, HasFactorOneAndIsNeverComplete) {
    EXPECT_EQ(m_transcoder->getMultibyteFactor(), 1U);
    EXPECT_FALSE(m_transcoder->isUnicodeCompletelyRepresentable());
}

TEST_P(TranscoderSBTableOfPage, ServesManyThreadsAtOnce) {
    std::string bytes;
    for (int i = 0; i < 4096; ++i) {
        bytes += static_cast<char>(i * 7);
    }
    const std::wstring units = m_reference.decode(bytes);
    const std::string back = m_reference.encode(units, "?");
    std::vector<std::thread> threads;
    std::vector<int> good(4);
    for (std::size_t i = 0; i < good.size(); ++i) {
        threads.emplace_back([&, i] {
            for (int round = 0; round < 20; ++round) {
                good[i] +=
                    decode(*m_transcoder, bytes) == units && encode(*m_transcoder, units) == back ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(good, std::vector<int>(4, 20));
}

TEST(TranscoderSBTable, Windows1252KeepsTheEuroAndTheControls) {
    const Owner transcoder = kWindows.make();
    EXPECT_EQ(decodedByte(*transcoder, 0x80), L"\x20AC");
    EXPECT_EQ(encodedUnit(*transcoder, 0x20AC), "\x80");
    EXPECT_EQ(encodedUnit(*transcoder, 0x0081), "\x81");
    EXPECT_EQ(encodedUnit(*transcoder, 0x0080), "?");
    EXPECT_EQ(encodedUnit(*transcoder, 0x4E00), "?");
    EXPECT_EQ(encode(*transcoder, L"\x201Cquoted\x201D \x2014 5\x20AC"), "\x93quoted\x94 \x97 5\x80");
}

TEST(TranscoderSBTable, Windows1252BringsEveryByteBack) {
    const Owner transcoder = kWindows.make();
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte) {
        bytes += static_cast<char>(byte);
    }
    EXPECT_EQ(encode(*transcoder, decode(*transcoder, bytes).value()), bytes);
}

TEST(TranscoderSBTable, Iso8859_1IsTheIdentity) {
    const Owner transcoder = kLatin1.make();
    for (unsigned byte = 0; byte < 256; ++byte) {
        EXPECT_EQ(decodedByte(*transcoder, byte), oneUnit(static_cast<wchar_t>(byte)));
    }
    EXPECT_EQ(encodedUnit(*transcoder, 0x00FF), "\xFF");
    EXPECT_EQ(encodedUnit(*transcoder, 0x0100), "?");
}

TEST(TranscoderSBTable, Iso8859_15HasTheEuroInThePlaceOfTheCurrencySign) {
    const Owner transcoder = kLatin9.make();
    EXPECT_EQ(encodedUnit(*transcoder, 0x00A4), "?");
    EXPECT_EQ(encodedUnit(*transcoder, 0x20AC), "\xA4");
    EXPECT_EQ(encodedUnit(*transcoder, 0x20AD), "?");
    EXPECT_EQ(decodedByte(*transcoder, 0xA4), L"\x20AC");
}

TEST(TranscoderSBTable, Iso8859_7FollowsTheFirstEdition) {
    const Owner transcoder = kGreek.make();
    EXPECT_EQ(encodedUnit(*transcoder, 0x2018), "?");
    EXPECT_EQ(encodedUnit(*transcoder, 0x2019), "?");
    EXPECT_EQ(encodedUnit(*transcoder, 0x02BD), "\xA1");
    EXPECT_EQ(encodedUnit(*transcoder, 0x02BC), "\xA2");
    EXPECT_EQ(encodedUnit(*transcoder, 0x2015), "\xAF");
    EXPECT_EQ(decodedByte(*transcoder, 0xAF), L"\x2015");
    for (const unsigned undefined : {0xA4U, 0xA5U, 0xAAU, 0xAEU, 0xD2U, 0xFFU}) {
        EXPECT_EQ(decodedByte(*transcoder, undefined), L"\xFFFD") << undefined;
    }
    for (const wchar_t later : {0x20AC, 0x20AF, 0x037A}) {
        EXPECT_EQ(encodedUnit(*transcoder, later), "?") << static_cast<int>(later);
    }
}

TEST(TranscoderSBTable, Iso8859_8_iFillsUnassignedBytesWithPrivateUse) {
    const Owner transcoder = kHebrew.make();
    EXPECT_EQ(encodedUnit(*transcoder, 0x200E), "?");
    EXPECT_EQ(encodedUnit(*transcoder, 0x200F), "?");
    EXPECT_EQ(encodedUnit(*transcoder, 0xF7BF), "\xFD");
    EXPECT_EQ(encodedUnit(*transcoder, 0xF79B), "?");
    EXPECT_EQ(encodedUnit(*transcoder, 0xF7C2), "?");
    EXPECT_EQ(decodedByte(*transcoder, 0xAF), L"\x203E");
    EXPECT_EQ(decodedByte(*transcoder, 0xDF), L"\x2017");
    std::vector<unsigned char> filled = {0xA1};
    for (unsigned byte = 0xBF; byte <= 0xDE; ++byte) {
        filled.push_back(static_cast<unsigned char>(byte));
    }
    for (unsigned byte = 0xFB; byte <= 0xFF; ++byte) {
        filled.push_back(static_cast<unsigned char>(byte));
    }
    ASSERT_EQ(filled.size(), 38U);
    wchar_t privateUse = 0xF79C;
    for (const unsigned char byte : filled) {
        EXPECT_EQ(decodedByte(*transcoder, byte), oneUnit(privateUse)) << int{byte};
        EXPECT_EQ(encodedUnit(*transcoder, privateUse), oneByte(byte)) << int{byte};
        ++privateUse;
    }
    EXPECT_EQ(privateUse, 0xF7C2);
}

TEST(TranscoderSBTable, DecodesUndefinedBytesToTheReplacementCharacter) {
    const Owner latin3 = kLatin3.make();
    for (const unsigned undefined : {0xA5U, 0xAEU, 0xBEU, 0xC3U, 0xD0U, 0xE3U, 0xF0U}) {
        EXPECT_EQ(decodedByte(*latin3, undefined), L"\xFFFD") << undefined;
    }
    const Owner arabic = kArabic.make();
    for (const unsigned undefined : {0xA1U, 0xA3U, 0xA5U, 0xABU, 0xAEU, 0xC0U, 0xDBU, 0xF3U, 0xFFU}) {
        EXPECT_EQ(decodedByte(*arabic, undefined), L"\xFFFD") << undefined;
    }
}

TEST(TranscoderSBTableCallback, GetsEachUnmappableUnitWithItsPlaceAndTheRoomLeft) {
    const Owner transcoder = kLatin2.make();
    // Unmappable inside the directly indexed range, at its end, above it, below zero.
    const wchar_t units[] = {L'a', 0x00A1, L'b', 0x02DE, 0x4E00, 0x0104, -1};
    char bytes[10];
    Responder responder{"#", {}, {}};
    ASSERT_EQ(transcoder->unicodeToMultibyte(units, 7, bytes, 10, nullptr, Responder::call, &responder), 7U);
    EXPECT_EQ(std::string(bytes, 7), "a#b##\xA1#");
    const std::size_t places[] = {1, 3, 4, 6};
    ASSERT_EQ(responder.calls.size(), std::size(places));
    for (std::size_t i = 0; i < std::size(places); ++i) {
        const Responder::Call& call = responder.calls[i];
        EXPECT_EQ(call.units, oneUnit(units[places[i]]));
        EXPECT_EQ(call.src, units + places[i]);
        EXPECT_EQ(call.dst, bytes + places[i]);
        EXPECT_EQ(call.dstLen, 10 - places[i]);
    }
}

TEST(TranscoderSBTableCallback, GetsAPairOnceWithCountTwo) {
    for (const Page& of : {kLatin1, kLatin2, kLatin9, kWindows}) {
        const Owner transcoder = of.make();
        Responder responder{"#", {}, {}};
        EXPECT_EQ(encode(*transcoder, {L'a', 0xD83D, 0xDE00, L'b'}, {}, Responder::call, &responder), "a#b");
        EXPECT_EQ(unitsOf(responder.calls), (std::vector<std::wstring>{{0xD83D, 0xDE00}})) << of.name;
        EXPECT_EQ(responder.calls.front().dstLen, 3U);
    }
}

TEST(TranscoderSBTableCallback, GetsLoneSurrogatesOneByOne) {
    const Owner transcoder = kWindows.make();
    Responder responder{"#", {}, {}};
    EXPECT_EQ(encode(*transcoder, {0xDE00, 0xD83D, 0xD83D, L'x', 0xD83D}, {}, Responder::call, &responder),
              "###x#");
    EXPECT_EQ(unitsOf(responder.calls), (std::vector<std::wstring>{{0xDE00}, {0xD83D}, {0xD83D}, {0xD83D}}));
}

TEST(TranscoderSBTableCallback, IsNotAskedAboutMappableUnits) {
    for (const Page& of : kPages) {
        const Owner transcoder = of.make();
        std::wstring units;
        for (unsigned value = 0; value < of.identityLimit; ++value) {
            units += static_cast<wchar_t>(value);
        }
        for (const UnicodeMultibyteMapping* row = of.table; row->eDirection != kCP_End; ++row) {
            units += row->wUnicodeChar;
        }
        Responder responder{"#", {}, {}};
        EXPECT_EQ(encode(*transcoder, units, {}, Responder::call, &responder),
                  Reference(of).encode(units, "?"));
        EXPECT_TRUE(responder.calls.empty()) << of.name;
    }
}

TEST(TranscoderSBTableCallback, MayWriteSeveralBytesWhileThereIsRoomForTheRest) {
    const Owner transcoder = kLatin2.make();
    Responder responder{"&u;", {}, {}};
    EXPECT_EQ(encode(*transcoder, L"a\x4E00z", 5, Responder::call, &responder), "a&u;z");
    EXPECT_EQ(encode(*transcoder, L"a\x4E00z", 4, Responder::call, &responder), std::nullopt);
    EXPECT_EQ(encode(*transcoder, L"\x4E00\x4E00", 6, Responder::call, &responder), "&u;&u;");
    EXPECT_EQ(encode(*transcoder, L"\x4E00\x4E00", 5, Responder::call, &responder), std::nullopt);
    // Exactly all of the room, at the end of the source.
    EXPECT_EQ(encode(*transcoder, L"a\x4E00", 4, Responder::call, &responder), "a&u;");
}

TEST(TranscoderSBTableCallback, MayUseTheRoomOfAWholePair) {
    const Owner transcoder = kLatin2.make();
    Responder responder{"xy", {}, {}};
    EXPECT_EQ(encode(*transcoder, {0xD83D, 0xDE00, L'z'}, {}, Responder::call, &responder), "xyz");
    responder.answer = "xyz";
    EXPECT_EQ(encode(*transcoder, {0xD83D, 0xDE00, L'z'}, {}, Responder::call, &responder), std::nullopt);
}

TEST(TranscoderSBTableCallback, MayDropACharacterByReturningZero) {
    const Owner transcoder = kGreek.make();
    Responder responder{"", {}, {}};
    EXPECT_EQ(encode(*transcoder, {L'a', 0x4E00, 0xD83D, 0xDE00, 0x03B1}, {}, Responder::call, &responder),
              "a\xE1");
    EXPECT_EQ(encode(*transcoder, {0x4E00}, {}, Responder::call, &responder), "");
    EXPECT_EQ(responder.calls.size(), 3U);
}

TEST(TranscoderSBTableCallback, EndsTheConversionWithMinusOneAndWhatWasWrittenStays) {
    const Owner transcoder = kLatin2.make();
    Responder responder{"", kTooSmall, {}};
    char bytes[] = "xxxxx";
    EXPECT_EQ(
        transcoder->unicodeToMultibyte(L"ab\x4E00\x4E00z", 5, bytes, 5, nullptr, Responder::call, &responder),
        kTooSmall);
    EXPECT_STREQ(bytes, "abxxx");
    EXPECT_EQ(responder.calls.size(), 1U);
}

TEST(TranscoderSBTableCallback, ThatReportsMoreBytesThanAreLeftEndsTheConversion) {
    const Owner transcoder = kLatin2.make();
    for (const std::size_t tooMany :
         {std::size_t{3}, std::size_t{4}, std::size_t{1000000}, SIZE_MAX / 2, SIZE_MAX - 1}) {
        // Two bytes are left when the callback is asked.
        Responder responder{"12", tooMany, {}};
        EXPECT_EQ(encode(*transcoder, L"ab\x4E00z", 4, Responder::call, &responder), std::nullopt) << tooMany;
        EXPECT_EQ(encode(*transcoder, L"ab\x4E00", 4, Responder::call, &responder), std::nullopt) << tooMany;
        EXPECT_EQ(responder.calls.size(), 2U);
        EXPECT_EQ(responder.calls.back().dstLen, 2U);
    }
}

TEST(TranscoderSBTableCallback, ThatLeavesLessRoomThanSourceEndsTheConversion) {
    const Owner transcoder = kLatin2.make();
    Responder responder{"12", {}, {}};
    char bytes[] = "xxxx";
    EXPECT_EQ(transcoder->unicodeToMultibyte(L"a\x4E00yz", 4, bytes, 4, nullptr, Responder::call, &responder),
              kTooSmall);
    EXPECT_STREQ(bytes, "a12x");
    EXPECT_EQ(responder.calls.size(), 1U);
}

TEST(TranscoderSBTableCallback, IsAskedInOrderThroughLongText) {
    const Owner transcoder = kWindows.make();
    for (std::size_t gap = 0; gap <= 40; ++gap) {
        const std::wstring units = std::wstring(gap, L'a') + std::wstring{0xD83D, 0xDE00} +
                                   std::wstring(gap, L'b') + std::wstring{0x4E00} + std::wstring(gap, 0x20AC);
        Responder responder{"12", {}, {}};
        EXPECT_EQ(encode(*transcoder, units, units.size() + 1, Responder::call, &responder),
                  std::string(gap, 'a') + "12" + std::string(gap, 'b') + "12" + std::string(gap, '\x80'))
            << gap;
        EXPECT_EQ(unitsOf(responder.calls), (std::vector<std::wstring>{{0xD83D, 0xDE00}, {0x4E00}})) << gap;
    }
}

TEST(TranscoderSBTableCallback, GetsANullParameterAsItIs) {
    const Owner transcoder = kLatin2.make();
    const Callback cb = [](void* param, const wchar_t*, std::size_t, char* dst, std::size_t) -> std::size_t {
        *dst = param == nullptr ? '0' : '1';
        return 1;
    };
    EXPECT_EQ(encode(*transcoder, L"\x4E00", {}, cb, nullptr), "0");
}

TEST(TranscoderSBTableCallback, MayThrow) {
    const Owner transcoder = kLatin2.make();
    const Callback cb = [](void*, const wchar_t*, std::size_t, char*, std::size_t) -> std::size_t {
        throw std::runtime_error("no");
    };
    EXPECT_THROW(encode(*transcoder, L"a\x4E00", {}, cb), std::runtime_error);
}

TEST(TranscoderSBTableOfHandMadeRows, UsesEachRowInItsDirectionOnly) {
    const UnicodeMultibyteMapping rows[] = {{0x0100, "\x81", 1, kCP_Either},
                                            {0x0101, "\x82", 1, kCP_UnicodeToMB},
                                            {0x0102, "\x83", 1, kCP_MBToUnicode},
                                            {0x4E00, "\x84", 1, kCP_Either},
                                            {0x4E01, "\x85", 1, kCP_UnicodeToMB},
                                            {0x4E02, "\x86", 1, kCP_MBToUnicode},
                                            {0, nullptr, 0, kCP_End}};
    const TranscoderSBTable<128, 300, true> transcoder(rows);
    EXPECT_EQ(decode(transcoder, "\x81\x82\x83\x84\x85\x86"), L"\x0100\xFFFD\x0102\x4E00\xFFFD\x4E02");
    EXPECT_EQ(encode(transcoder, L"\x0100\x0101\x0102\x4E00\x4E01\x4E02"), "\x81\x82?\x84\x85?");
}

TEST(TranscoderSBTableOfHandMadeRows, StopsAtTheFirstTerminator) {
    const UnicodeMultibyteMapping rows[] = {{0x0100, "\x81", 1, kCP_Either},
                                            {0, nullptr, 0, kCP_End},
                                            {0x0101, "\x82", 1, kCP_Either},
                                            {0, nullptr, 0, kCP_End}};
    const TranscoderSBTable<128, 300, true> transcoder(rows);
    EXPECT_EQ(encode(transcoder, L"\x0100\x0101"), "\x81?");
    EXPECT_EQ(decode(transcoder, "\x81\x82"), L"\x0100\xFFFD");
}

TEST(TranscoderSBTableOfHandMadeRows, MadeOfTheTerminatorAloneKnowsTheIdentityOnly) {
    const UnicodeMultibyteMapping rows[] = {{0, nullptr, 0, kCP_End}};
    const TranscoderSBTable<128, 300, true> transcoder(rows);
    for (unsigned byte = 0; byte < 256; ++byte) {
        EXPECT_EQ(decodedByte(transcoder, byte),
                  oneUnit(byte < 128 ? static_cast<wchar_t>(byte) : wchar_t{0xFFFD}));
    }
    for (wchar_t unit = 128; unit < 1000; ++unit) {
        EXPECT_EQ(encodedUnit(transcoder, unit), "?");
    }
}

TEST(TranscoderSBTableOfHandMadeRows, TakesTheLastRowOfARepeatedKey) {
    const UnicodeMultibyteMapping rows[] = {{0x0100, "\x81", 1, kCP_Either}, {0x0100, "\x82", 1, kCP_Either},
                                            {0x4E00, "\x83", 1, kCP_Either}, {0x4E00, "\x84", 1, kCP_Either},
                                            {0x0101, "\x81", 1, kCP_Either}, {0, nullptr, 0, kCP_End}};
    const TranscoderSBTable<128, 300, true> transcoder(rows);
    EXPECT_EQ(encode(transcoder, L"\x0100\x4E00"), "\x82\x84");
    EXPECT_EQ(decode(transcoder, "\x81\x82\x83\x84"), L"\x0101\x0100\x4E00\x4E00");
}

TEST(TranscoderSBTableOfHandMadeRows, LooksBeyondThePrimaryLimitOnlyWithExtras) {
    const UnicodeMultibyteMapping rows[] = {{299, "\x81", 1, kCP_Either},
                                            {300, "\x82", 1, kCP_Either},
                                            {301, "\x83", 1, kCP_Either},
                                            {0, nullptr, 0, kCP_End}};
    const TranscoderSBTable<128, 300, true> with(rows);
    const TranscoderSBTable<128, 300, false> without(rows);
    EXPECT_EQ(encode(with, {299, 300, 301, 302}), "\x81\x82\x83?");
    EXPECT_EQ(encode(without, {299, 300, 301, 302}), "\x81???");
    EXPECT_EQ(decode(with, "\x81\x82\x83"), (std::wstring{299, 300, 301}));
    EXPECT_EQ(decode(without, "\x81\x82\x83"), (std::wstring{299, 300, 301}));
}

TEST(TranscoderSBTableOfHandMadeRows, HasNoUseForRowsOfTheIdentityPart) {
    const UnicodeMultibyteMapping rows[] = {{L'a', "\x81", 1, kCP_UnicodeToMB},
                                            {0x0100, "a", 1, kCP_MBToUnicode},
                                            {0, "\x82", 1, kCP_Either},
                                            {0, nullptr, 0, kCP_End}};
    const TranscoderSBTable<128, 300, true> transcoder(rows);
    EXPECT_EQ(encode(transcoder, {L'a', 0}), (std::string{'a', '\0'}));
    EXPECT_EQ(decode(transcoder, {'a', '\x82', '\0'}), (std::wstring{L'a', 0, 0}));
}

TEST(TranscoderSBTableOfHandMadeRows, MapsAForeignUnitToAnAsciiByte) {
    const UnicodeMultibyteMapping rows[] = {
        {0x00A0, " ", 1, kCP_UnicodeToMB}, {0x2019, "'", 1, kCP_UnicodeToMB}, {0, nullptr, 0, kCP_End}};
    const TranscoderSBTable<128, 300, true> transcoder(rows);
    EXPECT_EQ(encode(transcoder, L"it\x2019s\x00A0so"), "it's so");
    EXPECT_EQ(decode(transcoder, "it's so"), L"it's so");
}

TEST(TranscoderSBTableOfHandMadeRows, TakesAZeroByteForNoMappingInThePrimaryTableOnly) {
    const UnicodeMultibyteMapping rows[] = {
        {0x0100, "\0", 1, kCP_Either}, {0x4E00, "\0", 1, kCP_Either}, {0, nullptr, 0, kCP_End}};
    const TranscoderSBTable<128, 300, true> transcoder(rows);
    EXPECT_EQ(encode(transcoder, {0x0100, 0x4E00, 0}), (std::string{'?', '\0', '\0'}));
}

TEST(TranscoderSBTableOfHandMadeRows, KeepsNegativeUnitsInTheMap) {
    const UnicodeMultibyteMapping rows[] = {{-2, "\x81", 1, kCP_Either}, {0, nullptr, 0, kCP_End}};
    const TranscoderSBTable<128, 300, true> transcoder(rows);
    EXPECT_EQ(encode(transcoder, {-2, -1}), "\x81?");
    EXPECT_EQ(decode(transcoder, "\x81"), oneUnit(-2));
}

TEST(TranscoderSBTableOfHandMadeRows, TriesAPairBeforeTheMap) {
    const UnicodeMultibyteMapping rows[] = {
        {0xD83D, "\x81", 1, kCP_Either}, {0xDE00, "\x82", 1, kCP_Either}, {0, nullptr, 0, kCP_End}};
    const TranscoderSBTable<128, 300, true> transcoder(rows);
    EXPECT_EQ(encode(transcoder, {0xD83D, 0xDE00, 0xD83D, L'a', 0xDE00, 0xD83D}), "?\x81"
                                                                                  "a\x82\x81");
}

TEST(TranscoderSBTableOfHandMadeRows, IndexesSurrogatesThatLieBelowThePrimaryLimit) {
    const UnicodeMultibyteMapping rows[] = {{0xD83D, "\x81", 1, kCP_Either}, {0, nullptr, 0, kCP_End}};
    const auto transcoder = std::make_unique<TranscoderSBTable<128, 0x10000, false>>(rows);
    Responder responder{"#", {}, {}};
    EXPECT_EQ(encode(*transcoder, {0xD83D, 0xDE00, 0xD83C, 0xDE00}), "\x81???");
    EXPECT_EQ(encode(*transcoder, {0xD83C, 0xDE00}, {}, Responder::call, &responder), "##");
    EXPECT_EQ(responder.calls.size(), 2U);
}

TEST(AddUnicodeMapping, AddsToTheTableUpToTheLimitAndToTheMapFromThere) {
    const UnicodeMultibyteMapping rows[] = {{0, nullptr, 0, kCP_End}};
    TranscoderSBTable<128, 300, true> transcoder(rows);
    transcoder.AddUnicodeMapping({299, "\x81", 1, kCP_Either});
    transcoder.AddUnicodeMapping({300, "\x82", 1, kCP_Either});
    EXPECT_EQ(encode(transcoder, {299, 300}), "\x81\x82");
    EXPECT_EQ(decode(transcoder, "\x81\x82"), L"\xFFFD\xFFFD") << "the other direction is not touched";
    transcoder.AddUnicodeMapping({299, "\x83", 1, kCP_Either});
    transcoder.AddUnicodeMapping({300, "\x84", 1, kCP_Either});
    EXPECT_EQ(encode(transcoder, {299, 300}), "\x83\x84");
}
