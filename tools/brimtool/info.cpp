#include "info.h"

#include "Utility/Generic/Portable/SUPOS.h"
#include "Utility/Generic/Portable/SUPPerfTimeInterval.h"
#include "display_text.h"
#include "json.h"
#include "kernels/kernels.h"
#include "load_time.h"
#include "page_table.h"
#include "print_data.h"
#include "version.h"

#include <CLI/CLI.hpp>

#include <fenmemoryallocator864.h>

#include <chrono>
#include <clocale>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace brimtool {

namespace {

constexpr const char* kFooter =
    R"(The load time is what the library and the libraries it uses take when they are loaded, about 100 ms of it to
measure the timer; mapping their files is not in it. The kernels are the processor level of the hot loops
(BRIM_KERNELS names a lower one). The rest is the report of the allocator library.

Examples:
  brimtool info
  KROS_NUMBER_OF_PROCESSORS=4 brimtool info --json

Exit status: 0, or 2 for wrong usage and for output that cannot be written.)";

struct Info {
    std::string version = libraryVersion();
    std::string locale;
    int clientCodePage = static_cast<int>(SystemUtility::GetMultiByteCodePage());
    int systemCodePage = static_cast<int>(SystemUtility::GetACP());
    std::string language;
    int processors = SystemUtility::GetNumberOfProcessors();
    int maximumFileHandles = SystemUtility::GetMaximumFileHandles();
    int rpcTimeoutSeconds = SystemUtility::GetRPCTimeoutSeconds();
    std::uint64_t ticksPerSecond = g_TicksPerSecond;
    std::int64_t loadMicroseconds = std::chrono::duration_cast<std::chrono::microseconds>(loadTime()).count();
    const char* kernels;
    std::vector<std::string> allocator; // the lines of its report
};

const char* levelName(sup::kernels::Level level) {
    switch (level) {
    case sup::kernels::Level::avx512:
        return "avx512";
    case sup::kernels::Level::avx2:
        return "avx2";
    case sup::kernels::Level::plain:
        break;
    }
    return "plain";
}

// A piece is a printf format: its percent signs are doubled.
void appendPiece(void* report, const char* text, std::size_t length) {
    std::string& lines = *static_cast<std::string*>(report);
    for (std::size_t i = 0; i < length; ++i) {
        lines += text[i];
        if (text[i] == '%') {
            ++i;
        }
    }
}

std::vector<std::string> linesOf(std::string_view text) {
    std::vector<std::string> lines;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        lines.emplace_back(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return lines;
}

Info collect() {
    Info info;
    const char* const locale = std::setlocale(LC_CTYPE, nullptr);
    info.locale = locale == nullptr ? "" : locale;
    BrimString language;
    SystemUtility::GetErrorMessageLang(language);
    info.language = utf8Text(language);
    info.kernels = levelName(sup::kernels::kernelsInUse().level);
    std::string report;
    fenmem_800_log_diagnostics_information(&report, appendPiece);
    info.allocator = linesOf(report);
    return info;
}

std::string pageText(int codePage) {
    return std::to_string(codePage) + (codePage == 0 ? " (the system's)" : ", " + nameOfCodePage(codePage));
}

std::string asText(const Info& info) {
    char load[32];
    std::snprintf(load, sizeof(load), "%.1f ms", static_cast<double>(info.loadMicroseconds) / 1000);
    std::string text = tableText({
        {"Version", info.version},
        {"Locale", info.locale},
        {"Client code page", pageText(info.clientCodePage)},
        {"System code page", pageText(info.systemCodePage)},
        {"Message language", info.language},
        {"Processors", std::to_string(info.processors)},
        {"Maximum of open files", std::to_string(info.maximumFileHandles)},
        {"RPC time-out", std::to_string(info.rpcTimeoutSeconds) + " s"},
        {"Timer", std::to_string(info.ticksPerSecond) + " ticks/s"},
        {"Load time", load},
        {"Kernels", info.kernels},
    });
    text += "Allocator\n";
    for (const std::string& line : info.allocator) {
        text += "  " + line + '\n';
    }
    return text;
}

std::string asJson(const Info& info) {
    JsonWriter json;
    json.beginObject();
    json.key("version").string(info.version);
    json.key("locale").string(info.locale);
    json.key("clientCodePage").number(info.clientCodePage);
    json.key("systemCodePage").number(info.systemCodePage);
    json.key("messageLanguage").string(info.language);
    json.key("processors").number(info.processors);
    json.key("maximumFileHandles").number(info.maximumFileHandles);
    json.key("rpcTimeoutSeconds").number(info.rpcTimeoutSeconds);
    json.key("timerTicksPerSecond").number(static_cast<std::int64_t>(info.ticksPerSecond));
    json.key("loadMicroseconds").number(info.loadMicroseconds);
    json.key("kernels").string(info.kernels);
    json.key("allocator").beginArray();
    for (const std::string& line : info.allocator) {
        json.string(line);
    }
    json.endArray().endObject();
    return json.text();
}

} // namespace

Subcommand addInfo(CLI::App& app) {
    const auto isJson = std::make_shared<bool>(false);
    CLI::App& command = *app.add_subcommand("info", "Tell version, settings and speed of the library.");
    command.add_flag("--json", *isJson, "As JSON");
    command.footer(kFooter);
    return {&command, [isJson] {
                const Info info = collect();
                printData(*isJson ? asJson(info) : terminalText(asText(info)));
                return kDone;
            }};
}

} // namespace brimtool
