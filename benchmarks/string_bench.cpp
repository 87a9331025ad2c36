// sup::String against std::basic_string, and its copies against std::shared_ptr.
//
// Reference counts leave out the lock prefix while a process has had only one thread, ours and those of
// std::shared_ptr alike, and nothing brings that state back. So one process measures one state: by default
// the first, with --second_thread the other.
#include "corpus.h"

#include "Utility/Generic/Portable/SUPString.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <memory>
#include <string>
#include <sys/single_threaded.h>
#include <thread>
#include <vector>

namespace {

using Brim = sup::String<wchar_t>;
using BrimNarrow = sup::String<char>;
using Std = std::wstring;
using StdNarrow = std::string;
using SharedPtr = std::shared_ptr<const std::wstring>;

template <class String>
using Char = typename String::value_type;

std::size_t lengthArgument(const benchmark::State& state) { return static_cast<std::size_t>(state.range(0)); }

// ---- Copies -----------------------------------------------------------------------------------------------

template <class String>
String makeText(std::size_t length) {
    return String(length, Char<String>('x'));
}
template <>
SharedPtr makeText<SharedPtr>(std::size_t length) {
    return std::make_shared<const std::wstring>(length, L'x');
}

template <class String>
void BM_CopyAndRelease(benchmark::State& state) {
    const String original = makeText<String>(lengthArgument(state));
    for (auto _ : state) {
        String copy(original);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK_TEMPLATE(BM_CopyAndRelease, Brim)->Arg(20)->Arg(200);
BENCHMARK_TEMPLATE(BM_CopyAndRelease, SharedPtr)->Arg(20)->Arg(200);
BENCHMARK_TEMPLATE(BM_CopyAndRelease, Std)->Arg(20)->Arg(200);

template <class String>
void BM_CopyVector(benchmark::State& state) {
    std::vector<String> original;
    for (std::size_t i = 0; i < lengthArgument(state); ++i) {
        original.push_back(makeText<String>(20));
    }
    for (auto _ : state) {
        std::vector<String> copy(original);
        benchmark::DoNotOptimize(copy.data());
    }
}
BENCHMARK_TEMPLATE(BM_CopyVector, Brim)->Arg(1000);
BENCHMARK_TEMPLATE(BM_CopyVector, SharedPtr)->Arg(1000);
BENCHMARK_TEMPLATE(BM_CopyVector, Std)->Arg(1000);

// ---- Construction and growth ------------------------------------------------------------------------------

template <class String>
void BM_NewAndRelease(benchmark::State& state) {
    const std::vector<Char<String>> source(lengthArgument(state), Char<String>('x'));
    const Char<String>* text = source.data();
    for (auto _ : state) {
        benchmark::DoNotOptimize(text);
        String fresh(text, source.size());
        benchmark::DoNotOptimize(fresh);
    }
}
BENCHMARK_TEMPLATE(BM_NewAndRelease, Brim)->Arg(1)->Arg(3)->Arg(20)->Arg(250)->Arg(4000);
BENCHMARK_TEMPLATE(BM_NewAndRelease, Std)->Arg(1)->Arg(3)->Arg(20)->Arg(250)->Arg(4000);
BENCHMARK_TEMPLATE(BM_NewAndRelease, BrimNarrow)->Arg(20)->Arg(250);
BENCHMARK_TEMPLATE(BM_NewAndRelease, StdNarrow)->Arg(20)->Arg(250);

template <class String>
void BM_PushBack(benchmark::State& state) {
    for (auto _ : state) {
        String text;
        for (std::size_t i = 0; i < lengthArgument(state); ++i) {
            text.push_back(Char<String>('x'));
        }
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK_TEMPLATE(BM_PushBack, Brim)->Arg(1024);
BENCHMARK_TEMPLATE(BM_PushBack, Std)->Arg(1024);
BENCHMARK_TEMPLATE(BM_PushBack, BrimNarrow)->Arg(1024);
BENCHMARK_TEMPLATE(BM_PushBack, StdNarrow)->Arg(1024);

template <class String>
void BM_AppendEight(benchmark::State& state) {
    const std::vector<Char<String>> piece(8, Char<String>('x'));
    const Char<String>* source = piece.data();
    for (auto _ : state) {
        String text;
        while (text.length() < lengthArgument(state)) {
            benchmark::DoNotOptimize(source);
            text.append(source, piece.size());
        }
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK_TEMPLATE(BM_AppendEight, Brim)->Arg(1024);
BENCHMARK_TEMPLATE(BM_AppendEight, Std)->Arg(1024);
BENCHMARK_TEMPLATE(BM_AppendEight, BrimNarrow)->Arg(1024);
BENCHMARK_TEMPLATE(BM_AppendEight, StdNarrow)->Arg(1024);

template <class String>
void BM_Substr20(benchmark::State& state) {
    const String text = makeText<String>(lengthArgument(state));
    std::size_t from = 40;
    for (auto _ : state) {
        benchmark::DoNotOptimize(from);
        String part = text.substr(from, 20);
        benchmark::DoNotOptimize(part);
    }
}
BENCHMARK_TEMPLATE(BM_Substr20, Brim)->Arg(100);
BENCHMARK_TEMPLATE(BM_Substr20, Std)->Arg(100);

// The lengths meet again after each pass, so the block stays.
template <class String>
void BM_InsertAndEraseInTheMiddle(benchmark::State& state) {
    String text = makeText<String>(lengthArgument(state));
    const String piece = makeText<String>(8);
    const std::size_t middle = lengthArgument(state) / 2;
    for (auto _ : state) {
        text.insert(middle, piece);
        benchmark::DoNotOptimize(text);
        text.erase(middle, 8);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK_TEMPLATE(BM_InsertAndEraseInTheMiddle, Brim)->Arg(100);
BENCHMARK_TEMPLATE(BM_InsertAndEraseInTheMiddle, Std)->Arg(100);

// ---- Searching and comparing ------------------------------------------------------------------------------

// A benchmark that finds something else than the peer would tell nothing.
template <class String>
void requireFound(benchmark::State& state, const String& text, std::size_t at, std::size_t expected) {
    if (at != expected) {
        state.SkipWithError("wrong answer");
    }
    state.SetBytesProcessed(state.iterations() *
                            static_cast<std::int64_t>(text.length() * sizeof(Char<String>)));
}

template <class String>
void BM_FindLastCharacter(benchmark::State& state) {
    String text = makeText<String>(lengthArgument(state));
    text.replace(text.length() - 1, 1, 1, Char<String>('y'));
    Char<String> wanted('y');
    for (auto _ : state) {
        benchmark::DoNotOptimize(wanted);
        benchmark::DoNotOptimize(text.find(wanted));
    }
    requireFound(state, text, text.find(wanted), text.length() - 1);
}
BENCHMARK_TEMPLATE(BM_FindLastCharacter, Brim)->Arg(16)->Arg(1024)->Arg(65536);
BENCHMARK_TEMPLATE(BM_FindLastCharacter, Std)->Arg(16)->Arg(1024)->Arg(65536);
BENCHMARK_TEMPLATE(BM_FindLastCharacter, BrimNarrow)->Arg(16)->Arg(1024);
BENCHMARK_TEMPLATE(BM_FindLastCharacter, StdNarrow)->Arg(16)->Arg(1024);

template <class String>
void BM_RfindFirstCharacter(benchmark::State& state) {
    String text = makeText<String>(lengthArgument(state));
    text.replace(0, 1, 1, Char<String>('y'));
    Char<String> wanted('y');
    for (auto _ : state) {
        benchmark::DoNotOptimize(wanted);
        benchmark::DoNotOptimize(text.rfind(wanted));
    }
    requireFound(state, text, text.rfind(wanted), 0);
}
BENCHMARK_TEMPLATE(BM_RfindFirstCharacter, Brim)->Arg(16)->Arg(1024)->Arg(65536);
BENCHMARK_TEMPLATE(BM_RfindFirstCharacter, Std)->Arg(16)->Arg(1024)->Arg(65536);

// 64 Ki characters of a text, the pattern behind them and nowhere else.
template <class String>
void BM_FindText(benchmark::State& state, const char* textName, const wchar_t* pattern) {
    const bench::Text* const source = bench::findUtf8Text(textName);
    if (source == nullptr) {
        state.SkipWithError("the text is not installed");
        return;
    }
    std::wstring characters = bench::toUnits(source->bytes).substr(0, 65536);
    for (std::size_t at = 0; (at = characters.find(pattern, at)) != std::wstring::npos;) {
        characters[at] = L' ';
    }
    characters += pattern;
    const String text(characters.c_str());
    for (auto _ : state) {
        benchmark::DoNotOptimize(pattern);
        benchmark::DoNotOptimize(text.find(pattern));
    }
    requireFound(state, text, text.find(pattern),
                 characters.size() - std::char_traits<wchar_t>::length(pattern));
}

template <class String>
void BM_FindEightInForty(benchmark::State& state) {
    const String text(L"quick brown foxes jump over the lazy dog");
    const wchar_t* pattern = L"lazy dog";
    for (auto _ : state) {
        benchmark::DoNotOptimize(pattern);
        benchmark::DoNotOptimize(text.find(pattern));
    }
    requireFound(state, text, text.find(pattern), 32);
}
BENCHMARK_TEMPLATE(BM_FindEightInForty, Brim);
BENCHMARK_TEMPLATE(BM_FindEightInForty, Std);

template <class String>
void BM_Equals(benchmark::State& state) {
    const String a = makeText<String>(lengthArgument(state));
    const String b = makeText<String>(lengthArgument(state));
    for (auto _ : state) {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(a == b);
    }
}
BENCHMARK_TEMPLATE(BM_Equals, Brim)->Arg(16)->Arg(256);
BENCHMARK_TEMPLATE(BM_Equals, Std)->Arg(16)->Arg(256);

template <class String>
void BM_Compare(benchmark::State& state) {
    const String a = makeText<String>(lengthArgument(state));
    const String b = makeText<String>(lengthArgument(state));
    for (auto _ : state) {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(a.compare(b));
    }
}
BENCHMARK_TEMPLATE(BM_Compare, Brim)->Arg(16)->Arg(256);
BENCHMARK_TEMPLATE(BM_Compare, Std)->Arg(16)->Arg(256);

void registerTextSearches() {
    struct Search {
        const char* name;
        const char* text;
        const wchar_t* pattern;
    };
    static constexpr Search kSearches[] = {
        {"rare_first_letter", "ascii", L"Xylophone"},
        {"common_word", "ascii", L"the letters"},
        {"russian_word", "russian", L"пересылка"},
        {"japanese_word", "japanese", L"かいもの"},
        {"long_pattern", "ascii", L"the terms and conditions for copying, and for what else"},
    };
    for (const Search& search : kSearches) {
        if (bench::findUtf8Text(search.text) == nullptr) {
            continue;
        }
        const auto add = [&search](const char* peer,
                                   void (*run)(benchmark::State&, const char*, const wchar_t*)) {
            const std::string name = std::string("BM_FindText<") + peer + ">/" + search.name;
            benchmark::RegisterBenchmark(name.c_str(), [run, &search](benchmark::State& state) {
                run(state, search.text, search.pattern);
            });
        };
        add("Brim", &BM_FindText<Brim>);
        add("Std", &BM_FindText<Std>);
    }
}

// An allocator library that is linked in would serve the peers too.
void requireMallocOfTheCLibrary() {
    Dl_info owner = {};
    dladdr(dlsym(RTLD_DEFAULT, "malloc"), &owner);
    if (owner.dli_fname == nullptr || std::strstr(owner.dli_fname, "libc.so") == nullptr) {
        std::fprintf(stderr, "malloc is not the C library's\n");
        std::exit(1);
    }
}

} // namespace

int main(int argc, char** argv) {
    requireMallocOfTheCLibrary();
    benchmark::Initialize(&argc, argv);
    if (argc == 2 && std::strcmp(argv[1], "--second_thread") == 0) {
        std::thread([] {}).join();
        --argc;
    }
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::AddCustomContext("threads_ever", __libc_single_threaded ? "one" : "more");
    registerTextSearches();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
