// Converts a file from one code page to another and tells how many characters the target page lacks.
//
//   transcode_file FROM TO INPUT OUTPUT      code pages as numbers: transcode_file 28591 65001 a.txt b.txt
#include "Utility/Generic/Portable/SUPOS.h"
#include "Utility/Generic/Portable/transcodercache.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

using sup::transcodeimpl::TranscoderCache;
using sup::transcodeimpl::TranscoderImplBase;

// Called for each character that the target page lacks.
std::size_t countAndReplace(void* count, const wchar_t*, std::size_t, char* destination, std::size_t room) {
    if (room == 0) {
        return static_cast<std::size_t>(-1);
    }
    ++*static_cast<std::size_t*>(count);
    *destination = '?';
    return 1;
}

std::vector<wchar_t> decode(const TranscoderImplBase& from, const std::string& bytes) {
    std::vector<wchar_t> units(bytes.size()); // no byte gives more than one unit
    units.resize(from.multibyteToUnicode(bytes.data(), bytes.size(), units.data(), units.size(), nullptr));
    return units;
}

std::string encode(const TranscoderImplBase& to, const std::vector<wchar_t>& units, std::size_t& lacking) {
    std::string bytes(units.size() * to.getMultibyteFactor(), '\0');
    bytes.resize(to.unicodeToMultibyte(units.data(), units.size(), bytes.data(), bytes.size(), nullptr,
                                       countAndReplace, &lacking));
    return bytes;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
        std::fprintf(stderr, "usage: transcode_file FROM TO INPUT OUTPUT\n");
        return 2;
    }
    // Null for an unknown page, which the library has reported on standard output.
    const TranscoderImplBase* const from = TranscoderCache::getTranscoder(std::atoi(argv[1]));
    const TranscoderImplBase* const to = TranscoderCache::getTranscoder(std::atoi(argv[2]));
    std::ifstream input(argv[3], std::ios::binary);
    if (from == nullptr || to == nullptr || !input) {
        std::fprintf(stderr, "transcode_file: unknown code page, or no such file\n");
        return 2;
    }
    const std::string bytes{std::istreambuf_iterator<char>(input), std::istreambuf_iterator<char>()};

    std::size_t lacking = 0;
    const std::string result = encode(*to, decode(*from, bytes), lacking);

    std::ofstream output(argv[4], std::ios::binary);
    output.write(result.data(), static_cast<std::streamsize>(result.size()));
    output.close();
    std::printf("%zu bytes to %zu, %zu characters replaced\n", bytes.size(), result.size(), lacking);
    return output ? 0 : 2;
}
