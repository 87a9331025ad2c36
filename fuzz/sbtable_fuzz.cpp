// Every single-byte page both ways next to its described table, at each processor level.
#include "fuzz_input.h"

#include "exact_buffer.h"
#include "kernel_levels.h"
#include "transcoders/sbtable_pages.h"

#include <gtest/gtest.h>

#include <iterator>

using brimtest::kPages;
using brimtest::Owner;
using brimtest::Page;
using brimtest::Reference;

namespace {

struct Subject {
    explicit Subject(const Page& page) : transcoder(page.make()), reference(page) {}
    Owner transcoder;
    Reference reference;
};

const Subject& subject(std::size_t index) {
    static const std::vector<Subject> subjects(std::begin(kPages), std::end(kPages));
    return subjects[index];
}

std::wstring decoded(const Subject& page, const std::string& bytes) {
    ExactBuffer<char> source{std::string_view(bytes)};
    ExactBuffer<wchar_t> units(bytes.size());
    const std::size_t length =
        page.transcoder->multibyteToUnicode(source.data(), bytes.size(), units.data(), bytes.size(), nullptr);
    EXPECT_EQ(length, bytes.size());
    return units.first(length);
}

std::size_t writeHash(void* /*param*/, const wchar_t* /*src*/, std::size_t /*srcLen*/, char* dst,
                      std::size_t dstLen) {
    constexpr std::string_view kAnswer = "##";
    return dstLen < 2 ? static_cast<std::size_t>(-1) : kAnswer.copy(dst, 2);
}

// Room for `room` bytes; all callers give enough.
std::string encoded(const Subject& page, const std::wstring& units, std::size_t room, bool withCallback) {
    ExactBuffer<wchar_t> source{std::wstring_view(units)};
    ExactBuffer<char> bytes(room);
    const std::size_t length =
        page.transcoder->unicodeToMultibyte(source.data(), units.size(), bytes.data(), room, nullptr,
                                            withCallback ? writeHash : nullptr, nullptr);
    EXPECT_LE(length, room);
    return bytes.first(length);
}

} // namespace

void fuzzOne(FuzzInput& input) {
    const Subject& page = subject(input.below(std::size(kPages)));
    const bool decodesFirst = input.flip();
    const std::string bytes = decodesFirst ? input.rest() : std::string();
    const std::wstring units = decodesFirst ? page.reference.decode(bytes) : input.restAsText();
    const std::string marked = page.reference.encode(units, "?");
    const std::string answered = page.reference.encode(units, "##");
    brimtest::atEachLevel([&] {
        ASSERT_EQ(decoded(page, bytes), page.reference.decode(bytes));
        ASSERT_EQ(encoded(page, units, units.size(), false), marked);
        ASSERT_EQ(encoded(page, units, 2 * units.size(), true), answered);
        if (!units.empty()) {
            char none = 0;
            ASSERT_EQ(page.transcoder->unicodeToMultibyte(units.data(), units.size(), &none, 0, nullptr,
                                                          nullptr, nullptr),
                      static_cast<std::size_t>(-1));
        }
    });
}
