#include "texts.h"

#include <cerrno>

namespace brimtool {

namespace {

constexpr std::size_t kPieceLength = std::size_t{64} * 1024;
constexpr std::size_t kLongestWhole = std::size_t{256} * 1024 * 1024;

} // namespace

std::string Text::place() const {
    return from.empty() ? "argument " + std::to_string(number) : from + ", line " + std::to_string(number);
}

void forEachText(const std::vector<std::string>& arguments, const std::string& name,
                 const std::function<bool(const Text&)>& look) {
    const std::string noFile;
    std::size_t number = 0;
    for (const std::string& argument : arguments) {
        if (!look({argument, true, noFile, ++number})) {
            return;
        }
    }
    if (!arguments.empty()) {
        return;
    }
    InputFile input(name);
    std::string line; // the beginning of one that the end of a piece cuts
    std::vector<char> piece(kPieceLength);
    while (const std::size_t length = input.read(piece.data(), piece.size())) {
        std::string_view rest(piece.data(), length);
        for (std::size_t end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
            line += rest.substr(0, end);
            if (!look({line, true, input.displayName(), ++number})) {
                return;
            }
            line.clear();
            rest.remove_prefix(end + 1);
        }
        line += rest;
    }
    if (!line.empty()) {
        look({line, false, input.displayName(), ++number});
    }
}

std::string readWhole(const std::string& name) {
    InputFile input(name);
    std::string whole;
    std::size_t length = 0;
    do {
        length = whole.size();
        if (length > kLongestWhole) {
            throw IoError("cannot take all of " + input.displayName(), EFBIG);
        }
        whole.resize(length + kPieceLength);
        whole.resize(length + input.read(whole.data() + length, kPieceLength));
    } while (whole.size() != length);
    return whole;
}

void TextOutput::put(std::string_view bytes, bool endsLine) {
    m_pending += bytes;
    if (endsLine) {
        m_pending += '\n';
    }
    if (m_pending.size() >= kPieceLength) {
        m_file.write(m_pending);
        m_pending.clear();
    }
}

void TextOutput::finish() {
    m_file.write(m_pending);
    m_pending.clear();
    m_file.commit();
}

} // namespace brimtool
