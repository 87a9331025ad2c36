#include "page_coders.h"

#include "Utility/Generic/Portable/transcodercache.h"
#include "judge.h"

namespace brimtool {

namespace {

using Transcoder = sup::transcodeimpl::TranscoderImplBase;

static_assert(Judge::kLongestCut <= Decoder::kLongestCut);

const Transcoder& transcoderOf(int codePage) {
    return *sup::transcodeimpl::GetTranscoderCache()->Find(codePage);
}

// The library's decoders are lenient: only what has been judged well formed reaches them.
class PageDecoder : public Decoder {
public:
    explicit PageDecoder(int codePage) : m_transcoder(transcoderOf(codePage)), m_judge(makeJudge(codePage)) {}

    Step decode(const char* text, std::size_t length, wchar_t* units, std::size_t room) override {
        const Judge::Verdict verdict = m_judge->judge(text, length);
        const std::size_t count =
            m_transcoder.multibyteToUnicode(text, verdict.wellFormed, units, room, nullptr);
        return {verdict.wellFormed, count, verdict.rest, verdict.cut};
    }
    std::size_t bytesOf(const wchar_t* units, std::size_t count) override {
        return m_judge->bytesOf(units, count);
    }
    std::size_t finish(wchar_t* /*units*/) override { return 0; }

private:
    const Transcoder& m_transcoder;
    std::unique_ptr<Judge> m_judge;
};

// The first character that the page lacks, and where its bytes would have gone.
struct Lacking {
    const wchar_t* character = nullptr;
    std::size_t units = 0;
    const char* output = nullptr;
};

std::size_t onUntranslatable(void* param, const wchar_t* src, std::size_t srcLen, char* dst,
                             std::size_t /*dstLen*/) {
    *static_cast<Lacking*>(param) = {src, srcLen, dst};
    return static_cast<std::size_t>(-1); // ends the conversion
}

class PageEncoder : public Encoder {
public:
    explicit PageEncoder(int codePage) : m_transcoder(transcoderOf(codePage)) {}

    Step encode(const wchar_t* units, std::size_t count, char* out, std::size_t room) override {
        Lacking lacking;
        const std::size_t bytes =
            m_transcoder.unicodeToMultibyte(units, count, out, room, nullptr, onUntranslatable, &lacking);
        if (lacking.character == nullptr) {
            return {count, bytes, 0};
        }
        return {static_cast<std::size_t>(lacking.character - units),
                static_cast<std::size_t>(lacking.output - out), lacking.units};
    }
    std::size_t finish(char* /*out*/, std::size_t /*room*/) override { return 0; }
    std::size_t roomFor(std::size_t count) const override {
        return count * m_transcoder.getMultibyteFactor();
    }
    bool isComplete() const override { return m_transcoder.isUnicodeCompletelyRepresentable(); }

private:
    const Transcoder& m_transcoder;
};

} // namespace

std::unique_ptr<Decoder> makePageDecoder(int codePage) { return std::make_unique<PageDecoder>(codePage); }

std::unique_ptr<Encoder> makePageEncoder(int codePage) { return std::make_unique<PageEncoder>(codePage); }

} // namespace brimtool
