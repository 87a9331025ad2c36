// The machine of multi-byte encodings, built from any table, next to a tree that grows as the rows say.
#include "fuzz_input.h"

#include "exact_buffer.h"
#include "usingtable_model.h"

#include <gtest/gtest.h>

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

// A destination that is too small gives -1 and is not left.
void convertInto(const TranscoderImplBase& transcoder, const std::string& bytes, const std::wstring& units,
                 std::size_t room) {
    const std::wstring allUnits = brimtest::decoded(transcoder, bytes);
    ExactBuffer<wchar_t> unitRoom(room);
    const std::size_t decoded =
        transcoder.multibyteToUnicode(bytes.data(), bytes.size(), unitRoom.data(), room, nullptr);
    ASSERT_TRUE(decoded == static_cast<std::size_t>(-1) || unitRoom.first(decoded) == allUnits);
    const std::string allBytes = brimtest::encoded(transcoder, units);
    ExactBuffer<char> byteRoom(room);
    const std::size_t encoded = transcoder.unicodeToMultibyte(units.data(), units.size(), byteRoom.data(),
                                                              room, nullptr, nullptr, nullptr);
    ASSERT_TRUE(encoded == static_cast<std::size_t>(-1) || byteRoom.first(encoded) == allBytes);
    ASSERT_LE(allBytes.size(), units.size() * transcoder.getMultibyteFactor());
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
    const std::size_t room = input.below(24);
    const std::size_t length = input.below(40);
    const std::string bytes = input.flip() ? someBytes(input, length) : input.bytes(length);
    std::wstring units;
    while (!input.done() && units.size() < 40) {
        units += someUnit(input);
    }
    ASSERT_EQ(brimtest::decoded(*transcoder, bytes), model.decoded(bytes));
    ASSERT_EQ(brimtest::encoded(*transcoder, units), model.encoded(units));
    convertInto(*transcoder, bytes, units, room);
}
