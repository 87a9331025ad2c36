// The machine of multi-byte encodings, built from any table, next to a tree that grows as the rows say, at
// each processor level.
#include "fuzz_input.h"

#include "exact_buffer.h"
#include "kernel_levels.h"
#include "usingtable_model.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace sup::transcodeimpl;

namespace {

constexpr std::string_view kBytes = "\x01"
                                    "a\x81\x82\xFE\xFF\x40";
constexpr wchar_t kUnits[] = {L'a',   L'b',   0x80,   0xFF,   0x4E00, 0xD800,
                              0xDBFF, 0xDC00, 0xDFFF, 0xFFFF, 0xFFFD, 0x7FFF};

// Few different ones, so that rows collide.
std::string someBytes(FuzzInput& input, std::size_t length) {
    std::string bytes;
    while (bytes.size() < length) {
        bytes += kBytes[input.below(kBytes.size())];
    }
    return bytes;
}
wchar_t someUnit(FuzzInput& input) {
    const std::size_t choice = input.below(std::size(kUnits) + 1);
    return choice < std::size(kUnits) ? kUnits[choice] : static_cast<wchar_t>(input.below(0x10000));
}

// Long enough for several steps of the loops.
template <class Text>
Text repeated(const Text& text, std::size_t times) {
    Text all;
    while (times-- != 0) {
        all += text;
    }
    return all;
}

constexpr std::size_t kTooSmall = static_cast<std::size_t>(-1);

void expectDecoded(const TranscoderImplBase& transcoder, const std::string& bytes,
                   const std::wstring& expected, std::size_t room) {
    ExactBuffer<char> source{std::string_view(bytes)};
    ExactBuffer<wchar_t> units(room);
    const std::size_t written =
        transcoder.multibyteToUnicode(source.data(), bytes.size(), units.data(), room, nullptr);
    ASSERT_EQ(written, room < expected.size() ? kTooSmall : expected.size());
    const std::size_t good = std::min(room, expected.size());
    ASSERT_EQ(units.first(good), expected.substr(0, good));
}

void expectEncoded(const TranscoderImplBase& transcoder, const std::wstring& units,
                   const std::string& expected, std::size_t room) {
    ExactBuffer<wchar_t> source{std::wstring_view(units)};
    ExactBuffer<char> bytes(room);
    const std::size_t written = transcoder.unicodeToMultibyte(source.data(), units.size(), bytes.data(), room,
                                                              nullptr, nullptr, nullptr);
    const bool fits = room >= std::max(units.size(), expected.size());
    ASSERT_EQ(written, fits ? expected.size() : kTooSmall);
    const std::size_t good = room < units.size() ? 0 : std::min(room, expected.size());
    ASSERT_EQ(bytes.first(good), expected.substr(0, good));
}

} // namespace

void fuzzOne(FuzzInput& input) {
    std::deque<brimtest::TableRow> rows;
    for (std::size_t count = input.below(32); count != 0; --count) {
        const wchar_t unit = someUnit(input);
        const std::size_t length = 1 + input.below(4);
        const std::string bytes = someBytes(input, length);
        rows.push_back({unit, bytes, static_cast<UMBMDirection>(input.below(3))});
    }
    const std::size_t identityCount = input.below(257);
    const auto transcoder = brimtest::transcoderOf(rows, identityCount);
    const brimtest::UsingTableModel model(rows, static_cast<unsigned int>(identityCount));
    const std::size_t spare = input.below(8);
    const std::size_t missing = input.below(24);
    const std::size_t times = 1 + input.below(8);
    const std::size_t length = input.below(80);
    const std::string bytes = repeated(input.flip() ? someBytes(input, length) : input.bytes(length), times);
    std::wstring part;
    while (!input.done() && part.size() < 80) {
        part += someUnit(input);
    }
    const std::wstring units = repeated(part, times);
    const std::wstring decoded = model.decoded(bytes);
    const std::string encoded = model.encoded(units);
    ASSERT_LE(encoded.size(), units.size() * transcoder->getMultibyteFactor());
    const std::size_t enough = std::max(units.size(), encoded.size());
    brimtest::atEachLevel([&] {
        expectDecoded(*transcoder, bytes, decoded, decoded.size() + spare);
        expectDecoded(*transcoder, bytes, decoded, decoded.size() - std::min(missing, decoded.size()));
        expectEncoded(*transcoder, units, encoded, enough + spare);
        expectEncoded(*transcoder, units, encoded, enough - std::min(missing, enough));
    });
}
