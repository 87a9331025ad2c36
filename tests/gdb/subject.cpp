// The program that the tests of the pretty-printers stop in gdb: one variable for each case.
#include "Utility/Generic/Portable/RefString.h"
#include "Utility/Generic/Portable/SUPAutobuffer.h"
#include "Utility/Generic/Portable/SUPBString.h"
#include "Utility/Generic/Portable/SUPHeapOwner.h"
#include "Utility/Generic/Portable/SUPString.h"
#include "Utility/Generic/Portable/StringBuffer.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <new>

namespace {

// An object of T whose words are `pattern` and what follows it in steps of 16; it is never destroyed.
template <class T>
struct Garbage {
    explicit Garbage(std::uintptr_t pattern) {
        for (std::size_t i = 0; i + sizeof(pattern) <= sizeof(bytes); i += sizeof(pattern)) {
            std::memcpy(bytes + i, &pattern, sizeof(pattern));
            pattern += 16;
        }
    }
    const T& object() const { return *std::launder(reinterpret_cast<const T*>(bytes)); }

    alignas(T) unsigned char bytes[sizeof(T)];
};

struct Point {
    int x;
    int y;
};

// What is only looked at in gdb is used here.
void stopHere(std::initializer_list<const void*>) { __asm__ volatile(""); }

// Holds a String's pointer to a block that is being overwritten.
sup::String<wchar_t> withDamagedFinish(const sup::String<wchar_t>& s, std::ptrdiff_t moved) {
    sup::String<wchar_t> copy(s.begin(), s.length());
    auto* const block =
        const_cast<sup::string_details::StringData<wchar_t>*>(copy.diagnosticGetSharedRepresentation());
    block->m_pFinish += moved;
    return copy;
}

} // namespace

int main() {
    using Wide = sup::String<wchar_t>;
    using Narrow = sup::String<char>;
    using WideBytes = sup::ByteString<wchar_t>;
    using NarrowBytes = sup::ByteString<char>;

    const Wide nullString;
    Wide clearedString(L"abc");
    clearedString.clear();
    const Wide wideString(L"text");
    const Wide& reference = wideString;
    const BrimString* const pointer = &wideString;
    const Narrow nullNarrowString;
    const Narrow narrowString("text");
    const Narrow narrowUtf8("\xC3\xA9\xF0\x9F\x98\x80");
    const Narrow narrowBroken("a\xFF"
                              "b\xC3");
    const Wide embeddedZeros(L"a\0b\0", 4);
    const Narrow narrowEmbeddedZeros("a\0b\0", 4);
    const Wide escapes(L"\"\\\n\t\x1B\x7F");
    const Wide letters(L"\xE9\x4E2D");
    const Wide pair(L"<\xD83D\xDE00>");
    const Wide halves(L"\xDE00"
                      L"a\xD83D"
                      L"b\xD83D");
    const wchar_t units[] = {L'a', static_cast<wchar_t>(0x110000), static_cast<wchar_t>(-1), 0x1F600};
    const Wide notUtf16(units, 4);
    const Wide longString(300, L'x');
    const Wide longPairs(L"\xD83D\xDE00\xD83D\xDE00\xD83D\xDE00");
    const Wide veryLongString(10000, L'y');

    const WideBytes nullByteString;
    const WideBytes byteString(L"b\xE9");
    const WideBytes wideByteString(L"b\x20AC");
    const NarrowBytes narrowByteString("bytes");
    const WideBytes byteStringZeros(L"a\0b", 3);

    sup::StringBufferTemplate<8, wchar_t> emptyBuffer;
    sup::StringBufferTemplate<8, wchar_t> inlineBuffer;
    inlineBuffer.append(L"in");
    sup::StringBufferTemplate<511, char> heapBuffer;
    heapBuffer.append(600, 'h');
    sup::StringBufferBaseTemplate<wchar_t>& bufferBase = inlineBuffer;

    const RefStringTemplate<wchar_t> nullView;
    const RefStringTemplate<wchar_t> view(wideString.begin() + 1, 2);
    const RefStringTemplate<char> narrowView(narrowString);
    const RefStringTemplate<wchar_t> backwardView(wideString.end(), wideString.begin());
    const RefStringTemplate<char> endlessView(reinterpret_cast<const char*>(16), 1000);

    AutoBuffer<int, 3> autoBuffer;
    for (int i = 0; i < 3; ++i) {
        autoBuffer.data()[i] = i * 10;
    }
    const AutoBufferBase<int>& autoBufferBase = autoBuffer;
    HeapedAutoBuffer<char> emptyHeapedBuffer;
    HeapedAutoBuffer<char> heapedBuffer(64);
    std::memset(heapedBuffer.data(), 'q', 64);
    const Heap<Point> nullHeap;
    const Heap<Point> heap(new Point{3, 4});

    const Garbage<Wide> garbageStringStorage(0xA5A5A5A5A5A5A5A5U);
    const Wide& garbageString = garbageStringStorage.object();
    const Garbage<WideBytes> garbageBytesStorage(0x10);
    const WideBytes& garbageByteString = garbageBytesStorage.object();
    const Garbage<sup::StringBufferTemplate<8, wchar_t>> garbageBufferStorage(0xA5A5A5A5A5A5A5A5U);
    const sup::StringBufferTemplate<8, wchar_t>& garbageBuffer = garbageBufferStorage.object();
    const Garbage<RefStringTemplate<wchar_t>> garbageViewStorage(0xA5A5A5A5A5A5A5A5U);
    const RefStringTemplate<wchar_t>& garbageView = garbageViewStorage.object();
    const Garbage<AutoBuffer<int, 3>> garbageAutoBufferStorage(0xA5A5A5A5A5A5A5A5U);
    const AutoBuffer<int, 3>& garbageAutoBuffer = garbageAutoBufferStorage.object();
    const Garbage<Heap<Point>> garbageHeapStorage(0x10);
    const Heap<Point>& garbageHeap = garbageHeapStorage.object();
    const Wide shortenedString = withDamagedFinish(wideString, -10);
    const Wide lengthenedString = withDamagedFinish(wideString, 1000000);

    stopHere({pointer, &nullView, &reference, &bufferBase, &autoBufferBase, &garbageString,
              &garbageByteString, &garbageBuffer, &garbageView, &garbageAutoBuffer, &garbageHeap});
    return 0;
}
