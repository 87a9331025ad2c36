#include "Utility/Generic/Portable/PrintWriterBase.h"

#include "NumberDigits.h"

#include <cstring>
#include <cwchar>
#include <iterator>

namespace sup {

namespace {

constexpr std::size_t kChunk = 64;

// One call of the sink, with no digits for 0.
void printDecimal(PrintWriterBase& writer, bool negative, unsigned long magnitude) {
    wchar_t text[1 + kDecimalRoom];
    wchar_t* const end = std::end(text);
    wchar_t* p = magnitude == 0 ? end : writeDecimalBefore(end, magnitude);
    if (negative) {
        *--p = L'-';
    }
    writer.addChars(p, static_cast<std::size_t>(end - p));
}

} // namespace

PrintWriterBase::~PrintWriterBase() = default;

void PrintWriterBase::outputEndl(Flush flush) {
    addChars(L"\n", 1);
    if (flush != kNoFlush) {
        this->flush();
    }
}

PrintWriterBase& PrintWriterBase::operator<<(bool value) {
    addChars(value ? L"true" : L"false", value ? 4 : 5);
    return *this;
}

PrintWriterBase& PrintWriterBase::operator<<(const String<wchar_t>& s) {
    if (!s.empty()) {
        addChars(s.begin(), s.length());
    }
    return *this;
}

PrintWriterBase& PrintWriterBase::operator<<(const RefStringTemplate<wchar_t>& ref) {
    if (!ref.empty()) {
        addChars(ref.begin(), ref.length());
    }
    return *this;
}

PrintWriterBase& PrintWriterBase::operator<<(const wchar_t* text) {
    if (text != nullptr) {
        addChars(text, std::wcslen(text));
    }
    return *this;
}

PrintWriterBase& PrintWriterBase::operator<<(const StringBufferBaseTemplate<wchar_t>& buffer) {
    addChars(buffer.c_str(), buffer.length());
    return *this;
}

PrintWriterBase& PrintWriterBase::appendNumberAsDecimal(long value) {
    printDecimal(*this, value < 0, magnitudeOf(value));
    return *this;
}

PrintWriterBase& PrintWriterBase::appendNumberAsDecimal(unsigned long value) {
    printDecimal(*this, false, value);
    return *this;
}

PrintWriterBase& PrintWriterBase::appendNumberAsHex(unsigned long value) {
    wchar_t digits[kHexRoom];
    const wchar_t* const end = value == 0 ? digits : writeHex(digits, value);
    addChars(digits, static_cast<std::size_t>(end - digits));
    return *this;
}

PrintWriterBase& PrintWriterBase::append(size_type n, wchar_t c) {
    wchar_t chunk[kChunk];
    std::wmemset(chunk, c, kChunk);
    for (; n >= kChunk; n -= kChunk) {
        addChars(chunk, kChunk);
    }
    addChars(chunk, n);
    return *this;
}

PrintWriterWNarrowBase& PrintWriterWNarrowBase::operator<<(const char* text) {
    if (text != nullptr) {
        addChars(text, std::strlen(text));
    }
    return *this;
}

PrintWriterWNarrowBase& PrintWriterWNarrowBase::operator<<(const RefStringTemplate<char>& ref) {
    if (!ref.empty()) {
        addChars(ref.begin(), ref.length());
    }
    return *this;
}

PrintWriterWNarrowBase& PrintWriterWNarrowBase::operator<<(const StringBufferBaseTemplate<char>& buffer) {
    addChars(buffer.c_str(), buffer.length());
    return *this;
}

PrintWriterWNarrowBase& PrintWriterWNarrowBase::operator<<(const String<char>& s) {
    addChars(s.begin(), s.length());
    return *this;
}

} // namespace sup
