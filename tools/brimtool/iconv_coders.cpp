#include "iconv_coders.h"

#include "SUPTranscodeIconv_UNIX.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <iterator>
#include <optional>

namespace brimtool {

namespace {

using sup::transcodeimpl::IconvPool;

constexpr const char* kWideSide = "UTF-16LE";
constexpr std::size_t kBlock = 1024; // units

bool isOpen(iconv_t converter) { return converter != reinterpret_cast<iconv_t>(-1); }

// One converter from a pool of its own.
class Converter {
public:
    Converter(const char* to, const char* from) : m_pool(to, from), m_converter(m_pool.borrow()) {}
    ~Converter() {
        if (isOpen(m_converter)) {
            m_pool.giveBack(m_converter);
        }
    }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    bool isKnown() const { return isOpen(m_converter); }

    // iconv(3): advances the texts and returns 0 or an errno. Null texts end the text.
    int convert(const char** in, std::size_t* inLeft, char** out, std::size_t* outLeft) {
        const std::size_t result = ::iconv(m_converter, const_cast<char**>(in), inLeft, out, outLeft);
        // With all of the source used up, an error only tells that something was left out on demand
        // (//IGNORE).
        const bool failed = result == static_cast<std::size_t>(-1) && (inLeft == nullptr || *inLeft != 0);
        return failed ? errno : 0;
    }

private:
    IconvPool m_pool;
    iconv_t m_converter;
};

struct Decoded {
    std::size_t bytes;
    std::size_t units;
    int error;
};

// `units` null drops them.
Decoded decodeWith(Converter& converter, const char* text, std::size_t length, wchar_t* units,
                   std::size_t room) {
    const char* in = text;
    std::size_t inLeft = length;
    std::size_t count = 0;
    for (;;) {
        std::uint16_t block[kBlock];
        const std::size_t blockRoom = std::min(kBlock, room - count);
        char* out = reinterpret_cast<char*>(block);
        std::size_t outLeft = blockRoom * sizeof(*block);
        const int error = converter.convert(&in, &inLeft, &out, &outLeft);
        const std::size_t got = blockRoom - outLeft / sizeof(*block);
        if (units != nullptr) {
            std::copy(block, block + got, units + count);
        }
        count += got;
        if (error != E2BIG || got == 0 || count == room) {
            return {length - inLeft, count, error};
        }
    }
}

// The bytes of the smallest unit of the encoding: what is skipped of a malformed text.
std::size_t unitOf(const char* name) {
    Converter encoder(name, kWideSide);
    std::size_t unit = 0;
    for (int i = 0; i < 2; ++i) { // the first may bring a header
        const char letter[] = {'A', 0};
        const char* in = letter;
        std::size_t inLeft = sizeof(letter);
        char bytes[32];
        char* out = bytes;
        std::size_t outLeft = sizeof(bytes);
        encoder.convert(&in, &inLeft, &out, &outLeft);
        unit = sizeof(bytes) - outLeft;
    }
    return std::clamp<std::size_t>(unit, 1, 4);
}

class IconvDecoder : public Decoder {
public:
    IconvDecoder(const char* name, bool tellsBytes) : m_converter(kWideSide, name), m_unit(unitOf(name)) {
        if (tellsBytes) {
            m_follower.emplace(kWideSide, name);
        }
    }

    Step decode(const char* text, std::size_t length, wchar_t* units, std::size_t room) override {
        const Decoded decoded = decodeWith(m_converter, text, length, units, room);
        startStep({text, decoded.bytes});
        const std::size_t left = length - decoded.bytes;
        const bool cut = decoded.error == EINVAL && left <= kLongestCut;
        const std::size_t rest = decoded.error == 0 || decoded.error == E2BIG ? 0
                                 : cut                                        ? left
                                                                              : std::min(m_unit, left);
        return {decoded.bytes, decoded.units, rest, cut};
    }

    std::size_t bytesOf(const wchar_t* /*units*/, std::size_t count) override {
        follow(count);
        return m_followedBytes;
    }

    std::size_t finish(wchar_t* units) override {
        startStep({});
        std::uint16_t held[kLongestEnd];
        char* out = reinterpret_cast<char*>(held);
        std::size_t outLeft = sizeof(held);
        m_converter.convert(nullptr, nullptr, &out, &outLeft);
        const std::size_t count = std::size(held) - outLeft / sizeof(*held);
        std::copy(held, held + count, units);
        return count;
    }

private:
    // A converter does not tell which bytes a unit came from. So another one, a step behind, converts the
    // same bytes again, up to the unit that is asked for.
    void startStep(std::string_view bytes) {
        if (m_follower) {
            follow(static_cast<std::size_t>(-1));
            m_step = bytes;
            m_followedBytes = 0;
            m_followedUnits = 0;
        }
    }
    void follow(std::size_t units) {
        if (units > m_followedUnits) {
            const Decoded decoded =
                decodeWith(*m_follower, m_step.data() + m_followedBytes, m_step.size() - m_followedBytes,
                           nullptr, units - m_followedUnits);
            m_followedBytes += decoded.bytes;
            m_followedUnits += decoded.units;
        }
    }

    Converter m_converter;
    std::size_t m_unit;
    std::optional<Converter> m_follower;
    std::string m_step;
    std::size_t m_followedBytes = 0;
    std::size_t m_followedUnits = 0;
};

class IconvEncoder : public Encoder {
public:
    explicit IconvEncoder(const char* name) : m_converter(name, kWideSide), m_factor(factorOf(name)) {}

    Step encode(const wchar_t* units, std::size_t count, char* out, std::size_t room) override {
        char* const begin = out;
        std::size_t done = 0;
        const auto bytes = [&] { return static_cast<std::size_t>(out - begin); };
        while (done != count) {
            std::uint16_t block[kBlock];
            const std::size_t length = std::min(kBlock, count - done);
            std::transform(units + done, units + done + length, block,
                           [](wchar_t unit) { return static_cast<std::uint16_t>(unit); });
            const char* in = reinterpret_cast<const char*>(block);
            std::size_t inLeft = length * sizeof(*block);
            const int error = m_converter.convert(&in, &inLeft, &out, &room);
            const std::size_t used = length - inLeft / sizeof(*block);
            done += used;
            const bool pairCutByBlock = error == EINVAL && used != 0;
            if (error == E2BIG) {
                return {done, bytes(), 0};
            }
            if (error != 0 && !pairCutByBlock) {
                const bool isPair =
                    count - done > 1 && (static_cast<unsigned int>(units[done]) & ~0x3FFU) == 0xD800U;
                return {done, bytes(), isPair ? 2U : 1U};
            }
        }
        return {done, bytes(), 0};
    }

    std::size_t finish(char* out, std::size_t room) override {
        char* const begin = out;
        m_converter.convert(nullptr, nullptr, &out, &room);
        return static_cast<std::size_t>(out - begin);
    }
    std::size_t roomFor(std::size_t count) const override { return count * m_factor + kHeader; }
    bool isComplete() const override { return false; }

private:
    static constexpr std::size_t kHeader = 64;

    static std::size_t factorOf(const char* name) {
        return sup::transcodeimpl::TranscoderIconv(name).getMultibyteFactor();
    }

    Converter m_converter;
    std::size_t m_factor;
};

} // namespace

bool isKnownToIconv(const std::string& name) {
    // The empty name means the locale's encoding there.
    return !name.empty() && Converter(kWideSide, name.c_str()).isKnown() &&
           Converter(name.c_str(), kWideSide).isKnown();
}

std::unique_ptr<Decoder> makeIconvDecoder(const std::string& name, bool tellsBytes) {
    return std::make_unique<IconvDecoder>(name.c_str(), tellsBytes);
}

std::unique_ptr<Encoder> makeIconvEncoder(const std::string& name) {
    return std::make_unique<IconvEncoder>(name.c_str());
}

} // namespace brimtool
