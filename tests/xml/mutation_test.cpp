// Documents that are damaged at random: the library finds an error wherever the bare parser does, and nowhere
// else.
#include "xml_test_support.h"

#include <gtest/gtest.h>

#ifdef __SANITIZE_ADDRESS__
#    include <sanitizer/lsan_interface.h>
#endif

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>

using xmltest::BareResult;
using xmltest::parseBare;
using xmltest::Parsing;

namespace {

const char* const kSeeds[] = {
    "<r Name='n'><c>text</c><d e='f'/>&amp;&#65;</r>",
    "<?xml version='1.0' encoding='UTF-8' standalone='yes'?><!--c--><r><![CDATA[<x>]]>\xc3\xa9</r><?p d?>",
    ("<!DOCTYPE r [<!ELEMENT r (a|b)*><!ATTLIST r x CDATA 'v' y ID #IMPLIED><!ENTITY e 'text'>"
     "<!ENTITY % p '<!ELEMENT b ANY>'>%p;<!NOTATION n SYSTEM 'n'><!ENTITY u SYSTEM 'u' NDATA n>]>"
     "<r x='1' xmlns:n='urn:n'><a n:b='c'>&e;</a><b/></r>"),
    ("<BrimLocale><Locales><Platform Name=\"LINUX\"><Locale><QuayLocale>de</QuayLocale></Locale></Platform>"
     "</Locales></BrimLocale>"),
};
constexpr char kAlphabet[] = "<>&;%'\"[]!-?/=:#x a1nDE\n\t\0\xc3\xa9\xff";

class Mutator {
public:
    explicit Mutator(std::uint64_t seed) : m_engine(seed) {}

    std::string mutated(std::string text) {
        for (std::size_t n = 1 + below(4); n > 0 && !text.empty(); --n) {
            const std::size_t at = below(text.size());
            switch (below(4)) {
            case 0:
                text[at] = kAlphabet[below(sizeof kAlphabet - 1)];
                break;
            case 1:
                text.erase(at, 1 + below(6));
                break;
            case 2:
                text.insert(at, 1, kAlphabet[below(sizeof kAlphabet - 1)]);
                break;
            default:
                text.insert(at, text.substr(below(text.size()), 1 + below(12)));
                break;
            }
        }
        return text;
    }

private:
    std::size_t below(std::size_t limit) { return static_cast<std::size_t>(m_engine() % limit); }

    std::mt19937_64 m_engine;
};

TEST(DamagedDocument, IsJudgedAsTheBareParserJudgesIt) {
#ifdef __SANITIZE_ADDRESS__
    const __lsan::ScopedDisabler xercesLeaksWhenAnElementDeclarationIsBroken;
#endif
#ifdef BRIM_SANITIZED
    constexpr int kRounds = 500;
#else
    constexpr int kRounds = 3000;
#endif
    int sound = 0;
    int broken = 0;
    for (const char* const seed : kSeeds) {
        Mutator mutator(2026);
        for (int round = 0; round < kRounds; ++round) {
            const std::string document = mutator.mutated(seed);
            SCOPED_TRACE(testing::Message() << "seed 2026, round " << round << ": " << document);
            const BareResult bare = parseBare(document);
            Parsing parsing;
            bool throwsDomException = false;
            try {
                parsing.bytes(document);
            } catch (const xercesc::DOMException&) {
                throwsDomException = true;
            }
            ASSERT_EQ(throwsDomException, bare.throwsDomException);
            ASSERT_EQ(parsing.reporter.fSawErrors, bare.errors != 0);
            if (!throwsDomException) {
                ASSERT_EQ(parsing.document != nullptr, bare.errors == 0);
                ASSERT_EQ(parsing.printed.empty(), bare.errors == 0);
            }
            ++(bare.errors == 0 ? sound : broken);
        }
    }
    EXPECT_GT(sound, kRounds / 10); // both kinds were met
    EXPECT_GT(broken, kRounds);
}

} // namespace
