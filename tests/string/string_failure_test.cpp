// sup::String without memory: whatever an operation was to do, std::bad_alloc leaves every string as it was.
#include "Utility/Generic/Portable/SUPString.h"

#include "string_test_support.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace {

using namespace brimtest;

enum State { kNull, kUnique, kUniqueWithRoom, kCleared, kShared, kSharedCleared };
constexpr State kStates[] = {kNull, kUnique, kUniqueWithRoom, kCleared, kShared, kSharedCleared};
const char* const kStateNames[] = {"null",    "unique", "unique with room",
                                   "cleared", "shared", "shared cleared"};

// The string under test, one that shares its block, and another that operations take their arguments from.
template <class T>
struct Strings {
    explicit Strings(State state) : argument(alphabetString<T>(30)) {
        if (state != kNull) {
            subject = alphabetString<T>(blockCapacity<T>(10)); // full
            if (state == kUniqueWithRoom) {
                subject.reserve(200);
            }
            if (state == kCleared || state == kSharedCleared) {
                subject.clear();
            }
            if (state == kShared || state == kSharedCleared) {
                sharer = subject;
            }
        }
    }

    sup::String<T> subject;
    sup::String<T> sharer;
    sup::String<T> argument;
};

// Everything that can be seen of a string.
template <class T>
std::string picture(const sup::String<T>& s) {
    return show(s) + ", capacity " + std::to_string(s.capacity()) + (s.isUnique() ? ", unique, " : ", ") +
           std::to_string(reinterpret_cast<std::size_t>(s.c_str()));
}
template <class T>
std::string picture(const Strings<T>& strings) {
    return picture(strings.subject) + "; " + picture(strings.sharer) + "; " + picture(strings.argument);
}

template <class T>
struct Operation {
    const char* name;
    std::function<void(Strings<T>&)> run;
};

template <class T>
class StringWithoutMemory : public StringTestOf<T> {
protected:
    // Refuses the first, the second, ... request of the operation until it succeeds, in every state. Returns
    // in how many states it needed memory.
    static int expectUnchangedAfterEachRefusal(const Operation<T>& operation) {
        int statesThatAllocate = 0;
        for (const State state : kStates) {
            SCOPED_TRACE(std::string(operation.name) + " of a string that is " + kStateNames[state]);
            long refused = 0;
            for (long n = 1;; ++n) {
                Strings<T> strings(state);
                const std::string before = picture(strings);
                const long blocksBefore = RecordingAllocator::liveBlocks();
                AllocationRefusal refusal(n);
                try {
                    operation.run(strings);
                    EXPECT_FALSE(refusal.happened()) << "a refusal went unnoticed";
                    break;
                } catch (const std::bad_alloc&) {
                    EXPECT_TRUE(refusal.happened());
                }
                ++refused;
                EXPECT_EQ(picture(strings), before);
                EXPECT_EQ(RecordingAllocator::liveBlocks(), blocksBefore);
            }
            EXPECT_LE(refused, 1) << "no operation needs more than one block";
            statesThatAllocate += refused != 0 ? 1 : 0;
        }
        return statesThatAllocate;
    }

    static void expectUnchangedAfterEachRefusal(const std::vector<Operation<T>>& operations) {
        for (const Operation<T>& operation : operations) {
            EXPECT_GT(expectUnchangedAfterEachRefusal(operation), 0) << operation.name;
        }
    }
};
TYPED_TEST_SUITE(StringWithoutMemory, CharacterTypes, CharacterTypeNames);

TYPED_TEST(StringWithoutMemory, Constructors) {
    using S = sup::String<TypeParam>;
    using totalCapacity = typename S::totalCapacity;
    using In = Strings<TypeParam>;
    this->expectUnchangedAfterEachRefusal({
        {"String(text)", [](In& in) { S(in.argument.c_str()); }},
        {"String(text, count)", [](In& in) { S(in.argument.c_str(), 7); }},
        {"String(range)", [](In& in) { S(in.argument.begin(), in.argument.end()); }},
        {"String(n, c)", [](In&) { S(9, CHARACTER('x')); }},
        {"String(c)", [](In&) { S one(CHARACTER('x')); }},
        {"String(s, n)", [](In& in) { S(in.subject, 3); }},
        {"String(s, totalCapacity)", [](In& in) { S(in.subject, totalCapacity(3)); }},
        {"String(range, totalCapacity)",
         [](In& in) { S(in.subject.begin(), in.subject.end(), totalCapacity(3)); }},
        {"substr(pos)", [](In& in) { in.subject.substr(2); }},
        {"substr(pos, n)", [](In& in) { in.subject.substr(2, 3); }},
        {"substr(range)", [](In& in) { in.argument.substr(in.argument.begin(), in.argument.end()); }},
    });
}

TYPED_TEST(StringWithoutMemory, NewOfAString) {
    using S = sup::String<TypeParam>;
    long n = 1;
    for (;; ++n) {
        const long blocksBefore = RecordingAllocator::liveBlocks();
        AllocationRefusal refusal(n);
        try {
            const std::unique_ptr<S> s(new S(TEXT("hello")));
            EXPECT_EQ(show(*s), "hello");
            break;
        } catch (const std::bad_alloc&) {
            EXPECT_EQ(RecordingAllocator::liveBlocks(), blocksBefore);
        }
    }
    EXPECT_EQ(n, 3); // the object, its block, then success
}

TYPED_TEST(StringWithoutMemory, Assignment) {
    using In = Strings<TypeParam>;
    const std::vector<Operation<TypeParam>> operations = {
        {"operator=(text)", [](In& in) { in.subject = in.argument.c_str(); }},
        {"assign(text)", [](In& in) { in.subject.assign(in.argument.c_str()); }},
        {"assign(text, count)", [](In& in) { in.subject.assign(in.argument.c_str(), 25); }},
        {"assign(range)", [](In& in) { in.subject.assign(in.argument.begin(), in.argument.end()); }},
        {"assign(s, n)", [](In& in) { in.subject.assign(in.argument, 25); }},
        {"assign(own part)", [](In& in) { in.subject.assign(in.subject, 3); }},
    };
    this->expectUnchangedAfterEachRefusal(operations);
}

TYPED_TEST(StringWithoutMemory, MutableAccess) {
    using In = Strings<TypeParam>;
    this->expectUnchangedAfterEachRefusal({
        {"mutable_begin", [](In& in) { in.subject.mutable_begin(); }},
        {"mutable_end", [](In& in) { in.subject.mutable_end(); }},
    });
}

TYPED_TEST(StringWithoutMemory, Appending) {
    using In = Strings<TypeParam>;
    this->expectUnchangedAfterEachRefusal({
        {"append(s)", [](In& in) { in.subject.append(in.argument); }},
        {"append(text)", [](In& in) { in.subject.append(in.argument.c_str()); }},
        {"append(text, count)", [](In& in) { in.subject.append(in.argument.c_str(), 25); }},
        {"append(range)", [](In& in) { in.subject.append(in.argument.begin(), in.argument.end()); }},
        {"append(c)", [](In& in) { in.subject.append(CHARACTER('x')); }},
        {"append(n, c)", [](In& in) { in.subject.append(5, CHARACTER('x')); }},
        {"+= s", [](In& in) { in.subject += in.argument; }},
        {"+= text", [](In& in) { in.subject += in.argument.c_str(); }},
        {"+= c", [](In& in) { in.subject += CHARACTER('x'); }},
        {"push_back", [](In& in) { in.subject.push_back(CHARACTER('x')); }},
        {"prepend(s)", [](In& in) { in.subject.prepend(in.argument); }},
        {"prepend(n, c)", [](In& in) { in.subject.prepend(5, CHARACTER('x')); }},
        {"append(itself)", [](In& in) { in.subject.append(in.subject); }},
        {"prepend(itself)", [](In& in) { in.subject.prepend(in.subject); }},
    });
}

TYPED_TEST(StringWithoutMemory, InsertingAndErasing) {
    using In = Strings<TypeParam>;
    this->expectUnchangedAfterEachRefusal({
        {"insert(pos, s)", [](In& in) { in.subject.insert(2, in.argument); }},
        {"insert(pos, text)", [](In& in) { in.subject.insert(2, in.argument.c_str()); }},
        {"insert(pos, range)", [](In& in) { in.subject.insert(2, in.argument.begin(), in.argument.end()); }},
        {"insert(pos, n, c)", [](In& in) { in.subject.insert(2, 5, CHARACTER('x')); }},
        {"insert(pos, itself)", [](In& in) { in.subject.insert(2, in.subject); }},
        {"insert beyond the end", [](In& in) { in.subject.insert(99, in.argument); }},
        {"erase(pos, n)", [](In& in) { in.subject.erase(2, 3); }},
        {"erase(pos)", [](In& in) { in.subject.erase(2); }},
        {"pop_back", [](In& in) { in.subject.pop_back(); }},
    });
}

TYPED_TEST(StringWithoutMemory, Replacing) {
    using In = Strings<TypeParam>;
    this->expectUnchangedAfterEachRefusal({
        {"replace(pos, n, range)",
         [](In& in) { in.subject.replace(2, 3, in.argument.begin(), in.argument.end()); }},
        {"replace(pos, n, text)", [](In& in) { in.subject.replace(2, 3, in.argument.c_str()); }},
        {"replace(pos, n, text, count)", [](In& in) { in.subject.replace(2, 3, in.argument.c_str(), 25); }},
        {"replace(pos, n, s)", [](In& in) { in.subject.replace(2, 3, in.argument); }},
        {"replace(pos, n, count, c)", [](In& in) { in.subject.replace(2, 3, 9, CHARACTER('x')); }},
        {"replace(pos, text)", [](In& in) { in.subject.replace(2, in.argument.c_str()); }},
        {"replace(pos, c)", [](In& in) { in.subject.replace(2, CHARACTER('x')); }},
        {"replace(pos, n, itself)", [](In& in) { in.subject.replace(2, 1, in.subject); }},
        {"replace beyond the end", [](In& in) { in.subject.replace(99, 1, in.argument); }},
    });
}

TYPED_TEST(StringWithoutMemory, Capacity) {
    using In = Strings<TypeParam>;
    this->expectUnchangedAfterEachRefusal({
        {"reserve", [](In& in) { in.subject.reserve(40); }},
        {"resize up", [](In& in) { in.subject.resize(40, CHARACTER('x')); }},
        {"resize down", [](In& in) { in.subject.resize(2); }},
        {"minimize", [](In& in) { in.subject.minimize(); }},
    });
}

TYPED_TEST(StringWithoutMemory, SharingMovingSwappingAndClearingNeedNone) {
    using S = sup::String<TypeParam>;
    using In = Strings<TypeParam>;
    const Operation<TypeParam> operations[] = {
        {"copy", [](In& in) { const S copy(in.subject); }},
        {"String(s, all)", [](In& in) { const S copy(in.argument, S::npos); }},
        {"operator=(s)", [](In& in) { in.subject = in.argument; }},
        {"assign(s, all)", [](In& in) { in.subject.assign(in.argument, S::npos); }},
        {"move", [](In& in) { in.subject = std::move(in.argument); }},
        {"swap", [](In& in) { in.subject.swap(in.argument); }},
        {"deepSwap", [](In& in) { in.subject.deepSwap(in.argument); }},
        {"clear", [](In& in) { in.subject.clear(); }},
        {"assign(\"\")", [](In& in) { in.subject.assign(TEXT("")); }},
        {"searches",
         [](In& in) {
             in.subject.find(CHARACTER('x'));
             in.subject.find(TEXT("xyz"));
             in.subject.rfind(CHARACTER('x'));
             in.subject.compare(in.argument);
             S::equals(in.subject, in.argument);
         }},
    };
    for (const auto& operation : operations) {
        EXPECT_EQ(this->expectUnchangedAfterEachRefusal(operation), 0) << operation.name;
    }
}

// The block that is given back may be the one that the text came from: it must outlive the copying.
TYPED_TEST(StringWithoutMemory, NothingIsGivenBackBeforeTheNewBlockIsFilled) {
    using S = sup::String<TypeParam>;
    S s = alphabetString<TypeParam>(blockCapacity<TypeParam>(10));
    const std::string text = show(s);
    AllocationLog log;
    {
        const AllocationRefusal refusal(1);
        EXPECT_THROW(s.append(s), std::bad_alloc);
        EXPECT_THROW(S(s).replace(0, 1, s.c_str(), S::npos / 2), std::bad_alloc);
    }
    EXPECT_TRUE(log.releases().empty());
    EXPECT_EQ(show(s), text);
    s.append(s);
    EXPECT_EQ(show(s), text + text);
    EXPECT_EQ(log.releases().size(), 1U);
}

} // namespace
