// share/gdb/brimportable.py: what gdb shows of the variables of subject.cpp.
#include "child_process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

using Arguments = std::vector<std::string>;

const char* const kUtf8 = "C.UTF-8";

// What a run of gdb printed.
struct Session {
    std::string output;
    bool isInstalled = true;

    bool mayTrace() const {
        return output.find("ptrace: Operation not permitted") == std::string::npos &&
               output.find("Could not trace the inferior process") == std::string::npos;
    }
    /// The values of the print commands, in order.
    std::vector<std::string> values() const {
        std::vector<std::string> result;
        std::istringstream lines(output);
        for (std::string line; std::getline(lines, line);) {
            const std::size_t equals = line.find(" = ");
            if (line[0] == '$' && equals != std::string::npos) {
                result.push_back(line.substr(equals + 3));
            }
        }
        return result;
    }
};

Session runGdb(const char* locale, const Arguments& arguments) {
    const brimtest::ChildResult result = brimtest::runInChild([&] {
        std::vector<char*> argv;
        std::vector<std::string> all = {"gdb", "-nx", "-batch", "-iex", "set debuginfod enabled off"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        all.emplace_back(GDB_SUBJECT);
        for (std::string& argument : all) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        ::setenv("LC_ALL", locale, 1);
        ::setenv("ASAN_OPTIONS", "detect_leaks=0", 1); // which does not work in a traced process
        ::dup2(STDOUT_FILENO, STDERR_FILENO);
        ::execvp("gdb", argv.data());
        ::_exit(98);
    });
    return {result.output, result.exitCode() != 98};
}

// Stops where all variables have their values, with the printers loaded, and runs `commands`.
Session inspect(const std::vector<std::string>& commands, const char* locale = kUtf8,
                const char* breakpoint = "break stopHere") {
    Arguments arguments = {"-ex", "source " GDB_PRINTERS, "-ex", breakpoint, "-ex", "run"};
    if (breakpoint == std::string("break stopHere")) {
        arguments.insert(arguments.end(), {"-ex", "up"});
    }
    for (const std::string& command : commands) {
        arguments.insert(arguments.end(), {"-ex", command});
    }
    return runGdb(locale, arguments);
}

#define SKIP_WITHOUT_GDB(session)                                                                            \
    if (!(session).isInstalled) {                                                                            \
        GTEST_SKIP() << "gdb is not installed";                                                              \
    }                                                                                                        \
    if (!(session).mayTrace()) {                                                                             \
        GTEST_SKIP() << "gdb may not trace a process here";                                                  \
    }                                                                                                        \
    static_assert(true, "takes the semicolon")

struct Shown {
    const char* expression;
    const char* value;
};

std::vector<std::string> printsOf(const std::vector<Shown>& table) {
    std::vector<std::string> commands;
    for (const Shown& row : table) {
        commands.push_back(std::string("print ") + row.expression);
    }
    return commands;
}

void expectShown(const std::vector<Shown>& table, const Session& session) {
    const std::vector<std::string> values = session.values();
    ASSERT_EQ(values.size(), table.size()) << session.output;
    for (std::size_t i = 0; i < table.size(); ++i) {
        EXPECT_EQ(values[i], table[i].value) << table[i].expression;
    }
    EXPECT_THAT(session.output, Not(HasSubstr("Python")));
    EXPECT_THAT(session.output, Not(HasSubstr("Traceback")));
}

std::string copies(std::size_t n, const std::string& text) {
    std::string result;
    for (; n != 0; --n) {
        result += text;
    }
    return result;
}

// ---- Texts ------------------------------------------------------------------------------------------------

TEST(GdbPrinters, ShowTextsAsLiterals) {
    const std::vector<Shown> table = {
        {"nullString", R"(L"")"},
        {"clearedString", R"(L"")"},
        {"wideString", R"(L"text")"},
        {"*pointer", R"(L"text")"},
        {"nullNarrowString", R"("")"},
        {"narrowString", R"("text")"},
        {"narrowUtf8", R"("é😀")"},
        {"narrowBroken", R"("a\377b\303")"},
        {"embeddedZeros", R"(L"a\000b\000")"},
        {"narrowEmbeddedZeros", R"("a\000b\000")"},
        {"escapes", R"(L"\"\\\n\t\u001b\u007f")"},
        {"letters", R"(L"é中")"},
        {"pair", R"(L"<😀>")"},
        {"halves", R"(L"\ude00a\ud83db\ud83d")"},
        {"notUtf16", R"(L"a\U00110000\Uffffffff😀")"},
        {"nullByteString", R"(L"")"},
        {"byteString", R"(L"bé")"},
        {"wideByteString", R"(L"b€")"},
        {"narrowByteString", R"("bytes")"},
        {"byteStringZeros", R"(L"a\000b")"},
        {"emptyBuffer", R"(L"")"},
        {"inlineBuffer", R"(L"in")"},
        {"nullView", R"(L"")"},
        {"view", R"(L"ex")"},
        {"narrowView", R"("text")"},
    };
    const Session session = inspect(printsOf(table));
    SKIP_WITHOUT_GDB(session);
    expectShown(table, session);
}

TEST(GdbPrinters, ReferencesAreShownLikeTheirObjects) {
    const Session session = inspect({"print reference", "print bufferBase", "print autoBufferBase"});
    SKIP_WITHOUT_GDB(session);
    const std::vector<std::string> values = session.values();
    ASSERT_EQ(values.size(), 3U) << session.output;
    EXPECT_THAT(values[0], testing::EndsWith(R"(L"text")"));
    EXPECT_THAT(values[1], testing::EndsWith(R"(L"in")"));
    EXPECT_THAT(values[2], testing::EndsWith("capacity 3 = {0, 10, 20}"));
}

TEST(GdbPrinters, EscapeWhatTheCharacterSetCannotShow) {
    const std::vector<Shown> table = {
        {"letters", R"(L"\u00e9\u4e2d")"},
        {"pair", R"(L"<\U0001f600>")"},
        {"narrowUtf8", R"("\303\251\360\237\230\200")"},
        {"byteString", R"(L"b\u00e9")"},
        {"wideString", R"(L"text")"},
    };
    const Session session = inspect(printsOf(table), "C");
    SKIP_WITHOUT_GDB(session);
    expectShown(table, session);
}

TEST(GdbPrinters, PrintElementsLimitsTheCharacters) {
    const std::string all10000 = 'L' + ('"' + copies(10000, "y") + '"');
    const Session session = inspect({
        "print longString",
        "print heapBuffer",
        "set print elements 4",
        "print wideString",
        "print longPairs",
        "print byteString",
        "set print elements 3",
        "print wideString",
        "print longPairs", // no pair is cut in half
        "print narrowView",
        "print heapedBuffer",
        "set print elements 0",
        "print veryLongString",
    });
    SKIP_WITHOUT_GDB(session);
    EXPECT_THAT(session.values(),
                testing::ElementsAre("L\"" + copies(200, "x") + "\"...", '"' + copies(200, "h") + "\"...",
                                     R"(L"text")", R"(L"😀😀"...)", R"(L"bé")", R"(L"tex"...)", R"(L"😀"...)",
                                     R"("tex"...)", "capacity 64 = {113 'q', 113 'q', 113 'q'...}", all10000))
        << session.output;
}

// ---- Buffers and owners -----------------------------------------------------------------------------------

TEST(GdbPrinters, ShowTheElementsOfBuffersAndTheObjectOfOwners) {
    const std::vector<Shown> table = {
        {"autoBuffer", "capacity 3 = {0, 10, 20}"},
        {"emptyHeapedBuffer", "capacity 0"},
        {"nullHeap", "Heap<(anonymous namespace)::Point> = {get() = 0x0}"},
        {"*heap.m_pObj", "{x = 3, y = 4}"},
    };
    std::vector<std::string> commands = printsOf(table);
    commands.insert(commands.begin(), "print heap");
    const Session session = inspect(commands);
    SKIP_WITHOUT_GDB(session);
    std::vector<std::string> values = session.values();
    ASSERT_EQ(values.size(), table.size() + 1) << session.output;
    EXPECT_THAT(values[0],
                MatchesRegex(R"(Heap<\(anonymous namespace\)::Point> = \{get\(\) = 0x[0-9a-f]+\})"));
    for (std::size_t i = 0; i < table.size(); ++i) {
        EXPECT_EQ(values[i + 1], table[i].value) << table[i].expression;
    }
}

// ---- Damage -----------------------------------------------------------------------------------------------

TEST(GdbPrinters, TellDamagedObjectsInsteadOfFailing) {
    const std::vector<std::string> expressions = {
        "garbageString", "garbageByteString", "garbageBuffer",   "garbageView",
        "backwardView",  "endlessView",       "shortenedString", "lengthenedString",
    };
    std::vector<std::string> commands;
    for (const char* const elements : {"200", "0"}) {
        commands.push_back(std::string("set print elements ") + elements);
        for (const std::string& expression : expressions) {
            commands.push_back("print " + expression);
        }
    }
    const Session session = inspect(commands);
    SKIP_WITHOUT_GDB(session);
    const std::vector<std::string> values = session.values();
    ASSERT_EQ(values.size(), 2 * expressions.size()) << session.output;
    for (std::size_t i = 0; i < values.size(); ++i) {
        EXPECT_THAT(values[i], HasSubstr("<damaged: ")) << expressions[i % expressions.size()];
    }
    EXPECT_THAT(session.output, Not(HasSubstr("Python")));
}

TEST(GdbPrinters, ShowDamagedBuffersAndOwnersAsFarAsTheyCanBeRead) {
    const Session session = inspect({"print garbageAutoBuffer", "print garbageHeap"});
    SKIP_WITHOUT_GDB(session);
    const std::vector<std::string> values = session.values();
    ASSERT_EQ(values.size(), 2U) << session.output;
    EXPECT_THAT(values[0], HasSubstr("= {<Cannot access memory at address 0xa5a5a5a5a5a5a5a5>}"));
    EXPECT_THAT(values[1], HasSubstr("Heap<(anonymous namespace)::Point> = {get() = 0x10}"));
    EXPECT_THAT(session.output, Not(HasSubstr("Python")));
}

TEST(GdbPrinters, LiveWithObjectsThatAreNotYetConstructed) {
    const Session session =
        inspect({"info locals", "set print elements 3", "info locals", "print sizeof(nullString)"}, kUtf8,
                "break main");
    SKIP_WITHOUT_GDB(session);
    EXPECT_THAT(session.values(), testing::ElementsAre("8")) << session.output;
    EXPECT_THAT(session.output, HasSubstr("\nwideString = "));
    EXPECT_THAT(session.output, Not(HasSubstr("Python")));
    EXPECT_THAT(session.output, Not(HasSubstr("Traceback")));
}

// ---- Loading ----------------------------------------------------------------------------------------------

// Its directory tree mirrors the places of the libraries, as <prefix>/share/gdb/auto-load does.
class AutoLoadDirectory {
public:
    AutoLoadDirectory() {
        std::string pattern = (std::filesystem::temp_directory_path() / "brim-gdb-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            return;
        }
        m_path = pattern;
        const std::filesystem::path library = std::filesystem::canonical(GDB_SUBJECT_LIBRARY);
        const std::filesystem::path place = m_path / library.relative_path();
        std::filesystem::create_directories(place.parent_path());
        std::filesystem::copy_file(GDB_PRINTERS, place.string() + "-gdb.py");
    }
    ~AutoLoadDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    AutoLoadDirectory(const AutoLoadDirectory&) = delete;
    AutoLoadDirectory& operator=(const AutoLoadDirectory&) = delete;

    std::string path() const { return m_path.string(); }

private:
    std::filesystem::path m_path;
};

TEST(GdbPrinters, AreLoadedByThemselvesWithTheLibrary) {
    const AutoLoadDirectory directory;
    ASSERT_NE(directory.path(), "");
    const Session session =
        runGdb(kUtf8, {"-iex", "set auto-load scripts-directory " + directory.path(), "-iex",
                       "add-auto-load-safe-path " + directory.path(), "-ex", "break stopHere", "-ex", "run",
                       "-ex", "up", "-ex", "print wideString"});
    SKIP_WITHOUT_GDB(session);
    EXPECT_THAT(session.values(), testing::ElementsAre(R"(L"text")")) << session.output;
}

} // namespace
