// The UTF-8 encoder next to its slow model, at each processor level and in a room of any size.
#include "fuzz_input.h"

#include "exact_buffer.h"
#include "kernel_levels.h"
#include "transcodingimplutf8.h"
#include "utf8_model.h"

#include <gtest/gtest.h>

using brimtest::ModelResult;
using brimtest::Utf8Model;
using sup::transcodeimpl::TranscoderImplUTF8;

namespace {

void encodeInto(const std::wstring& text, std::size_t room) {
    const ModelResult<std::string> expected = Utf8Model::encode(text, room);
    ExactBuffer<wchar_t> source{std::wstring_view(text)};
    ExactBuffer<char> bytes(room);
    ASSERT_EQ(TranscoderImplUTF8::S_unicodeToMultibyte(source.data(), text.size(), bytes.data(), room),
              expected.value());
    ASSERT_EQ(bytes.first(expected.written.size()), expected.written);
}

// Well-formed text comes back whole.
void expectRoundTrip(const std::wstring& text, const std::string& bytes) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (static_cast<std::uint32_t>(text[i]) > 0xFFFF) {
            return;
        }
    }
    ASSERT_EQ(Utf8Model::decode(bytes, bytes.size()).written, text);
}

} // namespace

void fuzzOne(FuzzInput& input) {
    const std::size_t roomLess = input.below(64);
    const std::wstring text = input.restAsText();
    const std::size_t most = 4 * text.size();
    const std::string whole = Utf8Model::encode(text, most).written;
    brimtest::atEachLevel([&] {
        encodeInto(text, most);
        encodeInto(text, whole.size());
        encodeInto(text, whole.size() - std::min(roomLess, whole.size()));
        ExactBuffer<wchar_t> source{std::wstring_view(text)};
        ASSERT_EQ(TranscoderImplUTF8::S_unicodeToMultibyteCalculateExactSize(source.data(), text.size()),
                  Utf8Model::exactSize(text));
    });
    expectRoundTrip(text, whole);
}
