#include "transcoderusingtable.h"

#include "guarded_buffer.h"
#include "recording_manager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <deque>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using namespace sup::transcodeimpl;
using brimtest::GuardedBuffer;
using brimtest::RecordingManager;

namespace {

constexpr std::size_t kTooSmall = static_cast<std::size_t>(-1);

struct Row {
    wchar_t unit;
    std::string bytes;
    UMBMDirection direction = kCP_Either;
};

// A mapping table that owns its bytes.
class Table {
public:
    Table() = default;
    Table(std::initializer_list<Row> rows) {
        for (const Row& row : rows) {
            add(row);
        }
    }
    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;

    void add(const Row& row) {
        const std::string& bytes = m_bytes.emplace_back(row.bytes);
        m_rows.push_back(
            {row.unit, bytes.data(), static_cast<unsigned int>(bytes.size()) & 0xFU, row.direction});
    }
    std::unique_ptr<TranscoderImplBase> transcoder(std::size_t identityCount) {
        m_rows.push_back({0, nullptr, 0, kCP_End});
        std::unique_ptr<TranscoderImplBase> made(
            TranscoderUsingTable::CreateTranscoderTable(m_rows.data(), identityCount));
        m_rows.pop_back();
        return made;
    }

private:
    std::deque<std::string> m_bytes;
    std::vector<UnicodeMultibyteMapping> m_rows;
};

// Conversions with room enough.
std::wstring decoded(const TranscoderImplBase& transcoder, std::string_view bytes) {
    std::wstring units(bytes.size(), L'x');
    units.resize(
        transcoder.multibyteToUnicode(bytes.data(), bytes.size(), units.data(), units.size(), nullptr));
    return units;
}

std::string encoded(const TranscoderImplBase& transcoder, std::wstring_view units) {
    std::string bytes(units.size() * transcoder.getMultibyteFactor(), 'x');
    bytes.resize(transcoder.unicodeToMultibyte(units.data(), units.size(), bytes.data(), bytes.size(),
                                               nullptr, nullptr, nullptr));
    return bytes;
}

// A page of one to four bytes a character.
std::unique_ptr<TranscoderImplBase> smallPage() {
    return Table{{0x4E00, "\x81\x40"},         {0xE9, "\xE9"},   {0x4E01, "\x82\x41\x42"},
                 {0x4E02, "\x83\x40\x41\x42"}, {0xDC05, "\xE5"}, {0xD805, "\xE6"}}
        .transcoder(128);
}

// ---- Decoding --------------------------------------------------------------------------------------------

TEST(TranscoderUsingTable, DecodesSequencesOfOneToFourBytes) {
    EXPECT_EQ(decoded(*smallPage(), "a\x81\x40z\xE9\x82\x41\x42\x83\x40\x41\x42-"),
              L"a\x4E00z\xE9\x4E01\x4E02-");
}

TEST(TranscoderUsingTable, DecodesBytesBelowTheIdentityCountToThemselves) {
    for (const std::size_t count : {0U, 1U, 128U, 200U, 256U}) {
        const auto transcoder = Table().transcoder(count);
        for (unsigned int byte = 0; byte < 256; ++byte) {
            const wchar_t unit = byte < count ? static_cast<wchar_t>(byte) : L'?';
            ASSERT_EQ(decoded(*transcoder, std::string(1, static_cast<char>(byte))), std::wstring(1, unit))
                << count << ' ' << byte;
        }
    }
}

TEST(TranscoderUsingTable, TakesAnIdentityCountAbove256For256) {
    for (const std::size_t count : {std::size_t{257}, std::size_t{100000}, kTooSmall}) {
        EXPECT_EQ(decoded(*Table().transcoder(count), "\x7F\x80\xFF"), L"\x7F\x80\xFF") << count;
    }
}

TEST(TranscoderUsingTable, ConsumesTheByteThatInterruptsASequence) {
    const auto page = smallPage();
    EXPECT_EQ(decoded(*page, "\x81\x41z"), L"?z");
    EXPECT_EQ(decoded(*page, "\x81\x81\x40"), L"?@") << "the second lead byte too";
    EXPECT_EQ(decoded(*page, "\x83\x40\x41z"), L"?");
    EXPECT_EQ(decoded(*page, "\x83zz"), L"?z");
}

TEST(TranscoderUsingTable, DecodesWhatTheEndCutsToOneQuestionMark) {
    const auto page = smallPage();
    for (const std::string_view cut : {"\x81", "\x82", "\x82\x41", "\x83\x40", "\x83\x40\x41"}) {
        EXPECT_EQ(decoded(*page, cut), L"?");
        EXPECT_EQ(decoded(*page, "z" + std::string(cut)), L"z?");
        EXPECT_EQ(page->multibyteToUnicode(cut.data(), cut.size(), nullptr, 0, nullptr), kTooSmall);
    }
}

TEST(TranscoderUsingTable, StartsEveryCallAfresh) {
    const auto page = smallPage();
    SUPTranscodeThreadContext context{};
    wchar_t unit = 0;
    ASSERT_EQ(page->multibyteToUnicode("\x81", 1, &unit, 1, &context), 1U);
    ASSERT_EQ(page->multibyteToUnicode("\x40", 1, &unit, 1, &context), 1U);
    EXPECT_EQ(unit, L'@');
}

TEST(TranscoderUsingTable, DecodesAnEmptySourceToNothing) {
    EXPECT_EQ(smallPage()->multibyteToUnicode("a", 0, nullptr, 0, nullptr), 0U);
}

TEST(TranscoderUsingTable, StopsDecodingAtTheEndOfTheDestination) {
    const auto page = smallPage();
    const std::string bytes = "a\x81\x40\xFF\x81\x41\xE9\x81";
    const std::wstring whole = L"a\x4E00??\xE9?";
    GuardedBuffer<wchar_t> buffer(whole.size());
    for (std::size_t room = 0; room <= whole.size(); ++room) {
        wchar_t* const dst = buffer.lastFenced(room, L'x');
        EXPECT_EQ(page->multibyteToUnicode(bytes.data(), bytes.size(), dst, room, nullptr),
                  room < whole.size() ? kTooSmall : room);
        EXPECT_EQ(std::wstring_view(dst, room), whole.substr(0, room)) << "what was written stays";
        EXPECT_TRUE(buffer.fenceIsWhole(room, L'x'));
    }
}

// ---- Encoding --------------------------------------------------------------------------------------------

TEST(TranscoderUsingTable, EncodesSequencesOfOneToFourBytes) {
    EXPECT_EQ(encoded(*smallPage(), L"a\x4E00z\xE9\x4E01\x4E02-"),
              "a\x81\x40z\xE9\x82\x41\x42\x83\x40\x41\x42-");
}

TEST(TranscoderUsingTable, EncodesUnitsBelow80AsTheirByteWhateverTheTableSays) {
    const auto transcoder = Table{{L'A', "\x91\x92"}, {0x7F, "\x93"}, {0, "\x94"}}.transcoder(0);
    for (wchar_t unit = 0; unit < 0x80; ++unit) {
        ASSERT_EQ(encoded(*transcoder, std::wstring(1, unit)), std::string(1, static_cast<char>(unit)));
    }
    EXPECT_EQ(decoded(*transcoder, "\x91\x92\x93\x94"), std::wstring(L"A\x7F\0", 3));
}

TEST(TranscoderUsingTable, EncodesANegativeUnitAsItsLowByte) {
    const wchar_t units[] = {-1, -0x80, static_cast<wchar_t>(0x80004141U)};
    EXPECT_EQ(encoded(*smallPage(), std::wstring(units, 3)), "\xFF\x80\x41");
}

TEST(TranscoderUsingTable, EncodesWhatItDoesNotKnowAsOneQuestionMark) {
    const auto page = smallPage();
    const std::pair<std::wstring, std::string> rows[] = {
        {L"\x80", "?"},          {L"\xFFFF", "?"},
        {L"\x1F600", "?"},                               // a whole code point in one unit
        {L"\x7FFFFFFF", "?"},    {L"\xD83D\xDE00", "?"}, // a pair
        {L"\xD83D", "?"},        {L"\xDE00", "?"},
        {L"\xD83Dz", "?z"},      {L"\xD83D\xD83D\xDE00", "??"},
        {L"\xDE00\xD83D", "??"}, {L"\xD83D\xDE00\xDE00", "??"},
    };
    for (const auto& [units, bytes] : rows) {
        EXPECT_EQ(encoded(*page, units), bytes) << testing::PrintToString(units);
    }
}

TEST(TranscoderUsingTable, EncodesMappedSurrogatesUnlessAnUnmappedHighOneTakesTheLowOne) {
    const auto page = smallPage();
    EXPECT_EQ(encoded(*page, L"\xDC05\xD805"), "\xE5\xE6");
    EXPECT_EQ(encoded(*page, L"\xD805\xDC05"), "\xE6\xE5");
    EXPECT_EQ(encoded(*page, L"\xD83D\xDC05"), "?");
}

TEST(TranscoderUsingTable, NeedsAByteForEveryUnitBeforeItEncodesAny) {
    const auto page = smallPage();
    char bytes[] = "xxx";
    // Two bytes would do: the pair is one "?".
    EXPECT_EQ(page->unicodeToMultibyte(L"a\xD83D\xDE00", 3, bytes, 2, nullptr, nullptr, nullptr), kTooSmall);
    EXPECT_STREQ(bytes, "xxx") << "nothing is written";
    EXPECT_EQ(page->unicodeToMultibyte(L"a\xD83D\xDE00", 3, bytes, 3, nullptr, nullptr, nullptr), 2U);
    EXPECT_EQ(page->unicodeToMultibyte(L"", 0, nullptr, 0, nullptr, nullptr, nullptr), 0U);
}

TEST(TranscoderUsingTable, StopsEncodingAtTheByteThatDoesNotFit) {
    const auto page = smallPage();
    const std::wstring units = L"\x4E00z\x4E02\xFFFF\x4E01";
    const std::string whole = "\x81\x40z\x83\x40\x41\x42?\x82\x41\x42";
    GuardedBuffer<char> buffer(units.size() * 4);
    for (std::size_t room = 0; room <= units.size() * 4; ++room) {
        char* const dst = buffer.lastFenced(room, 'x');
        EXPECT_EQ(page->unicodeToMultibyte(units.data(), units.size(), dst, room, nullptr, nullptr, nullptr),
                  room < whole.size() ? kTooSmall : whole.size());
        const std::size_t written = room < units.size() ? 0 : std::min(room, whole.size());
        EXPECT_EQ(std::string_view(dst, written), whole.substr(0, written));
        EXPECT_EQ(std::count(dst + written, dst + room, 'x'), static_cast<long>(room - written));
        EXPECT_TRUE(buffer.fenceIsWhole(room, 'x'));
    }
}

// ---- Encoding with a callback -----------------------------------------------------------------------------

struct Recorder {
    std::string answer;
    std::size_t result = kTooSmall; // the answer's length unless set
    std::vector<std::wstring> asked;
    std::vector<std::size_t> rooms;

    static std::size_t call(void* param, const wchar_t* src, std::size_t srcLen, char* dst,
                            std::size_t dstLen) {
        auto& self = *static_cast<Recorder*>(param);
        self.asked.emplace_back(src, srcLen);
        self.rooms.push_back(dstLen);
        if (self.answer.size() > dstLen) {
            return kTooSmall;
        }
        std::copy(self.answer.begin(), self.answer.end(), dst);
        return self.result == kTooSmall ? self.answer.size() : self.result;
    }
};

std::size_t encodeAsking(const TranscoderImplBase& page, std::wstring_view units, char* dst, std::size_t room,
                         Recorder& recorder) {
    return page.unicodeToMultibyte(units.data(), units.size(), dst, room, nullptr, Recorder::call, &recorder);
}

TEST(TranscoderUsingTable, AsksTheCallbackOnceForAPairAndOnceForAnyOtherUnmappableUnit) {
    Recorder recorder{"<>", kTooSmall, {}, {}};
    char bytes[64];
    const std::size_t n = encodeAsking(*smallPage(), L"a\xD83D\xDE00\x4E00\xD83Dz\xDE00\x1F600\xFFFF\xE9",
                                       bytes, sizeof(bytes), recorder);
    ASSERT_EQ(n, 15U);
    EXPECT_EQ(std::string_view(bytes, n), "a<>\x81\x40<>z<><><>\xE9");
    EXPECT_EQ(recorder.asked,
              (std::vector<std::wstring>{L"\xD83D\xDE00", L"\xD83D", L"\xDE00", L"\x1F600", L"\xFFFF"}));
    EXPECT_EQ(recorder.rooms, (std::vector<std::size_t>{63, 59, 56, 54, 52}));
}

TEST(TranscoderUsingTable, LetsTheCallbackWriteNothing) {
    Recorder recorder{"", kTooSmall, {}, {}};
    char bytes[4];
    ASSERT_EQ(encodeAsking(*smallPage(), L"a\xFFFFz", bytes, 3, recorder), 2U);
    EXPECT_EQ(std::string_view(bytes, 2), "az");
}

TEST(TranscoderUsingTable, EndsWhenTheCallbackSaysSo) {
    for (const std::size_t answer : {kTooSmall - 1, std::size_t{64}}) { // more than there is room, too
        Recorder recorder{"", answer, {}, {}};
        char bytes[64];
        EXPECT_EQ(encodeAsking(*smallPage(), L"a\xFFFF\xFFFE", bytes, 63, recorder), kTooSmall);
        EXPECT_EQ(recorder.asked.size(), 1U);
    }
    Recorder minusOne{std::string(100, '!'), kTooSmall, {}, {}};
    char bytes[64];
    EXPECT_EQ(encodeAsking(*smallPage(), L"a\xFFFF\xFFFE", bytes, 64, minusOne), kTooSmall);
    EXPECT_EQ(minusOne.asked.size(), 1U);
}

TEST(TranscoderUsingTable, NeedsAByteForEachRemainingUnitAfterTheCallback) {
    Recorder recorder{"<>", kTooSmall, {}, {}};
    char bytes[8];
    // Without the pair two bytes remain for two units, then one for two.
    EXPECT_EQ(encodeAsking(*smallPage(), L"\xD83D\xDE00zz", bytes, 4, recorder), 4U);
    EXPECT_EQ(encodeAsking(*smallPage(), L"\xFFFFzz", bytes, 3, recorder), kTooSmall);
    // Even when the rest, a pair that the callback leaves out, would need none.
    Recorder silent{"", 2, {}, {}};
    EXPECT_EQ(encodeAsking(*smallPage(), L"\xFFFF\xD83D\xDE00", bytes, 3, silent), kTooSmall);
    EXPECT_EQ(silent.asked.size(), 1U);
}

TEST(TranscoderUsingTable, NeverWritesPastTheEndWithACallback) {
    const auto page = smallPage();
    const std::wstring units = L"\x4E02\xFFFF\x4E00\xD83D\xDE00zz\x4E01";
    const std::string whole = "\x83\x40\x41\x42<>\x81\x40<>zz\x82\x41\x42";
    GuardedBuffer<char> buffer(40);
    for (std::size_t room = 0; room <= 40; ++room) {
        Recorder recorder{"<>", kTooSmall, {}, {}};
        char* const dst = buffer.lastFenced(room, 'x');
        const std::size_t n = encodeAsking(*page, units, dst, room, recorder);
        EXPECT_EQ(n, room < whole.size() ? kTooSmall : whole.size()) << room;
        if (n != kTooSmall) {
            EXPECT_EQ(std::string_view(dst, n), whole);
        }
        EXPECT_TRUE(buffer.fenceIsWhole(room, 'x'));
    }
}

// ---- Building --------------------------------------------------------------------------------------------

TEST(TranscoderUsingTable, IsNotACompleteEncoding) {
    EXPECT_FALSE(smallPage()->isUnicodeCompletelyRepresentable());
    EXPECT_FALSE(Table().transcoder(256)->isUnicodeCompletelyRepresentable());
}

TEST(TranscoderUsingTable, TellsTheLongestMappingOfAUnit) {
    EXPECT_EQ(Table().transcoder(128)->getMultibyteFactor(), 1U);
    EXPECT_EQ((Table{{0xE9, "\xE9"}}.transcoder(128)->getMultibyteFactor()), 1U);
    EXPECT_EQ((Table{{0xE9, "\x81\x40\x41"}, {0xEA, "\xEA"}}.transcoder(128)->getMultibyteFactor()), 3U);
    EXPECT_EQ((Table{{0xE9, "\x81\x40", kCP_UnicodeToMB}}.transcoder(128)->getMultibyteFactor()), 2U);
    EXPECT_EQ((Table{{0xE9, "\x81\x40", kCP_MBToUnicode}}.transcoder(128)->getMultibyteFactor()), 1U);
    EXPECT_EQ(smallPage()->getMultibyteFactor(), 4U);
    // Also of one that a later row shortens.
    EXPECT_EQ((Table{{0xE9, "\x81\x40"}, {0xE9, "\xE9"}}.transcoder(128)->getMultibyteFactor()), 2U);
}

TEST(TranscoderUsingTable, UsesRowsOfOneDirectionForItAlone) {
    const auto transcoder =
        Table{{0xE9, "\xA0", kCP_UnicodeToMB}, {0xEA, "\xA1", kCP_MBToUnicode}}.transcoder(128);
    EXPECT_EQ(encoded(*transcoder, L"\xE9\xEA"), "\xA0?");
    EXPECT_EQ(decoded(*transcoder, "\xA0\xA1"), L"?\xEA");
}

TEST(TranscoderUsingTable, ReadsTheTableUpToTheEndRowOnly) {
    const UnicodeMultibyteMapping rows[] = {
        {0xE9, "\xE9", 1, kCP_Either}, {0, nullptr, 0, kCP_End}, {0xEA, "\xEA", 1, kCP_Either}};
    const TranscoderUsingTable transcoder(rows, 128);
    EXPECT_EQ(decoded(transcoder, "\xE9\xEA"), L"\xE9?");
}

TEST(TranscoderUsingTable, LetsLaterRowsOverwriteEarlierOnes) {
    const auto transcoder =
        Table{{0xE9, "\x81\x40\x41"}, {0xE9, "\xE9"}, {0xEA, "\xE9"}, {L'!', "A"}}.transcoder(128);
    EXPECT_EQ(encoded(*transcoder, L"\xE9\xEA"), "\xE9\xE9");
    EXPECT_EQ(decoded(*transcoder, "\x81\x40\x41\xE9"
                                   "A"),
              L"\xE9\xEA!");
}

TEST(TranscoderUsingTable, LosesTheSingleByteMeaningOfALeadByte) {
    const auto transcoder = Table{{0xE9, "\x81"}, {0x4E00, "\x81\x40"}, {0x4E01, "A\x40"}}.transcoder(128);
    EXPECT_EQ(decoded(*transcoder, "\x81z\x81\x40"), L"?\x4E00");
    EXPECT_EQ(decoded(*transcoder, "A\x40"
                                   "Az"),
              L"\x4E01?")
        << "an identity, too";
    EXPECT_EQ(encoded(*transcoder, L"\xE9"), "\x81") << "the other way it stays";
}

TEST(TranscoderUsingTable, LosesTheSequencesOfALeadByteThatBecomesACharacter) {
    const auto transcoder = Table{{0x4E00, "\x81\x40"}, {0xE9, "\x81"}}.transcoder(128);
    EXPECT_EQ(decoded(*transcoder, "\x81\x40"), L"\xE9@");
    const auto again = Table{{0x4E00, "\x81\x40"}, {0xE9, "\x81"}, {0x4E01, "\x81\x41"}}.transcoder(128);
    EXPECT_EQ(decoded(*again, "\x81\x41\x81\x40"), L"\x4E01?");
}

TEST(TranscoderUsingTable, KeepsFourBytesOfALongMapping) {
    const std::string nine = "\x81\x82\x83\x84\x85\x86\x87\x88\x89";
    const auto transcoder = Table{{0x4E00, nine}}.transcoder(128);
    EXPECT_EQ(transcoder->getMultibyteFactor(), 9U);
    EXPECT_EQ(encoded(*transcoder, L"\x4E00"), nine.substr(0, 4));
    EXPECT_EQ(decoded(*transcoder, nine + "z"), L"\x4E00z") << "decoding knows it whole";
}

TEST(TranscoderUsingTable, EndsAMappingAtItsFirstZeroByte) {
    const auto transcoder = Table{
        {0xE9, std::string("\x81\0\x82", 3)},
        {0xEA, std::string("\0\x82", 2)},
        {0xEB,
         std::string(2, '\0')}}.transcoder(128);
    EXPECT_EQ(encoded(*transcoder, L"\xE9"), "\x81");
    EXPECT_EQ(encoded(*transcoder, L"\xEA"), "") << "a mapping to nothing";
    EXPECT_EQ(encoded(*transcoder, L"\xEB"), "?") << "no mapping";
    EXPECT_EQ(decoded(*transcoder, std::string("\x81\0\x82\0\x82\0\0", 7)), L"\xE9\xEA\xEB");
}

TEST(TranscoderUsingTable, IgnoresRowsThatNameNoByteOrNoUnit) {
    const auto transcoder = Table{
        {0xE9, "", kCP_MBToUnicode},
        {0xEA, "\xEA"},
        {0xEA, "", kCP_UnicodeToMB}, // takes the mapping away
        {0x10000, "\xEB"},
        {-1, "\xEC"}}.transcoder(128);
    EXPECT_EQ(encoded(*transcoder, L"\xE9\xEA\x10000"), "???");
    EXPECT_EQ(decoded(*transcoder, "\xEA"), L"\xEA");
}

// One three-byte row for each second byte takes a block: with that of the lead byte and the start 256 in all
// is the most.
constexpr int kMostTails = 254;

Table& addTails(Table& table, char lead, int count) {
    for (int i = 0; i < count; ++i) {
        table.add({static_cast<wchar_t>(0x4E00 + i), {lead, static_cast<char>(i), '\x40'}});
    }
    return table;
}

TEST(TranscoderUsingTable, HoldsAFullMachine) {
    const RecordingManager manager;
    Table table;
    const auto transcoder = addTails(table, '\x81', kMostTails).transcoder(128);
    for (int i = 0; i < kMostTails; ++i) {
        ASSERT_EQ(decoded(*transcoder, std::string{'\x81', static_cast<char>(i), '\x40'}),
                  std::wstring(1, static_cast<wchar_t>(0x4E00 + i)));
    }
    EXPECT_TRUE(manager.reports().empty());
}

TEST(TranscoderUsingTable, RefusesRowsThatTheMachineHasNoRoomForAndReportsThemOnce) {
    const RecordingManager manager;
    Table table;
    addTails(table, '\x81', kMostTails);
    table.add({0x6000, "\x81\xFF\x40"}); // one block too many
    table.add({0x6001, "\x82\x40"});
    table.add({0x6002, "\x83\x40\x41\x42"});
    table.add({0x6003, "\x81\x01\x41"}); // needs no block
    table.add({0x6004, "\xE9"});
    const auto transcoder = table.transcoder(128);
    EXPECT_EQ(manager.reports(), (RecordingManager::Reports{{-6, "(null)", "(null)"}}));

    EXPECT_EQ(decoded(*transcoder, "\x82z\x83\x81\x01\x41\xE9"), L"?z?\x6003\x6004");
    EXPECT_EQ(decoded(*transcoder, "\x81\xFF\x40"), L"?@");
    EXPECT_EQ(decoded(*transcoder, "\x81\x02\x40"), L"\x4E02") << "nothing wraps onto other blocks";
    EXPECT_EQ(decoded(*transcoder, "abc"), L"abc");
    EXPECT_EQ(encoded(*transcoder, L"\x6000\x6001\x6002\x6003"),
              "\x81\xFF\x40\x82\x40\x83\x40\x41\x42\x81\x01\x41")
        << "encoding needs no blocks";
}

TEST(TranscoderUsingTable, ChangesNothingForARefusedRow) {
    const RecordingManager manager;
    Table table;
    addTails(table, '\x81', kMostTails - 1); // room for one block
    table.add({0x6000, "\x82\x40\x41"});     // needs two
    table.add({0x6001, "\x83\x40"});
    const auto transcoder = table.transcoder(256);
    EXPECT_EQ(manager.reports().size(), 1U);
    EXPECT_EQ(decoded(*transcoder, "\x82\x40\x83\x40"), L"\x82@\x6001") << "the lead byte kept its meaning";
}

} // namespace
