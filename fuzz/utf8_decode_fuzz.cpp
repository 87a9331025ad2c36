// The UTF-8 decoder next to its slow model: whole, at each processor level, in a room of any size, and
// resumed at any splits.
#include "fuzz_input.h"

#include "EncodingUTF8.h"
#include "exact_buffer.h"
#include "kernel_levels.h"
#include "kernels/utf8_wellformed.h"
#include "transcodingimplutf8.h"
#include "utf8_model.h"

#include <gtest/gtest.h>

using brimtest::HeldBytes;
using brimtest::ModelResult;
using brimtest::Utf8Model;
using sup::transcodeimpl::TranscoderImplUTF8;
using Decoder = sup::transcodeimpl::N2TEncodingUTF8<wchar_t, unsigned short>;

namespace {

HeldBytes heldBy(const Decoder::State& state) {
    return {std::string(state.aBytes, state.nBytesStored), state.nCharByteLength};
}

void decodeWhole(const std::string& text, std::size_t room) {
    const ModelResult<std::wstring> expected = Utf8Model::decode(text, room);
    ExactBuffer<char> source{std::string_view(text)};
    ExactBuffer<wchar_t> units(room);
    ASSERT_EQ(TranscoderImplUTF8::S_multibyteToUnicode(source.data(), text.size(), units.data(), room),
              expected.value());
    ASSERT_EQ(units.first(expected.written.size()), expected.written);
}

void runKernel(const std::string& text) {
    HeldBytes held;
    const std::wstring expected = Utf8Model::decode(text, text.size(), held).written;
    ExactBuffer<char> source{std::string_view(text)};
    ExactBuffer<wchar_t> units(text.size());
    const auto at =
        sup::kernels::kernelsInUse().decodeUtf8(source.data(), source.data() + text.size(), units.data());
    ASSERT_EQ(static_cast<std::size_t>(at.src - source.data()), text.size() - held.bytes.size());
    ASSERT_EQ(units.first(static_cast<std::size_t>(at.dst - units.data())), expected);
    const char* const malformed = sup::kernels::skipWellFormed(source.data(), source.data() + text.size());
    ASSERT_EQ(sup::kernels::kernelsInUse().wellFormedUtf8(source.data(), text.size()),
              static_cast<std::size_t>(malformed - source.data()));
}

void decodePieces(const std::vector<std::string>& pieces, std::size_t tightRoom) {
    const Decoder decoder;
    Decoder::State state;
    HeldBytes held;
    for (const std::string& piece : pieces) {
        ExactBuffer<char> source{std::string_view(piece)};
        for (const std::size_t room : {tightRoom, piece.size() + 4}) { // a failure leaves the state alone
            const ModelResult<std::wstring> expected = Utf8Model::decode(piece, room, held);
            ExactBuffer<wchar_t> units(room);
            ASSERT_EQ(decoder.encode(source.data(), piece.size(), units.data(), room, state),
                      expected.value());
            ASSERT_EQ(units.first(expected.written.size()), expected.written);
            ASSERT_TRUE(heldBy(state) == held);
            if (expected.fits) {
                break;
            }
        }
    }
    wchar_t last = 0;
    const std::size_t pending = held.bytes.empty() ? 0 : 1;
    ASSERT_EQ(decoder.finalize(&last, 1, state), pending);
    ASSERT_EQ(last, pending == 0 ? 0 : 0xFFFD);
}

} // namespace

void fuzzOne(FuzzInput& input) {
    const std::size_t roomLess = input.below(8);
    const std::size_t tightRoom = input.below(64);
    std::vector<std::size_t> splits(input.below(4));
    for (std::size_t& split : splits) {
        split = input.below(200);
    }
    const std::string text = input.rest();
    std::vector<std::string> pieces;
    std::size_t at = 0;
    for (const std::size_t split : splits) {
        pieces.push_back(text.substr(std::min(at, text.size()), split));
        at += split;
    }
    pieces.push_back(text.substr(std::min(at, text.size())));
    brimtest::atEachLevel([&] {
        decodeWhole(text, text.size());
        decodeWhole(text, text.size() - std::min(roomLess, text.size()));
        runKernel(text);
        decodePieces(pieces, tightRoom);
    });
}
