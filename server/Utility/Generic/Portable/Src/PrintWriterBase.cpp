#include "Utility/Generic/Portable/PrintWriterBase.h"

#include "DigitsText.h"

#include <algorithm>
#include <cstring>
#include <cwchar>

namespace sup {

namespace {

constexpr std::size_t kNumberCharacters = 64;
constexpr std::size_t kChunk = 64;

// Writes the digits of `magnitude`, none for 0, in one call of the sink.
void writeDigits(PrintWriterBase& writer, bool negative, unsigned long magnitude, unsigned long base) {
    wchar_t digits[kNumberCharacters] = {};
    std::size_t n = 0;
    for (; magnitude != 0; magnitude /= base) {
        digits[n++] = kDigitsAndTruncationMark[magnitude % base];
    }
    if (negative) {
        digits[n++] = L'-';
    }
    std::reverse(digits, digits + n);
    writer.addChars(digits, n);
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
    const auto bits = static_cast<unsigned long>(value);
    writeDigits(*this, value < 0, value < 0 ? 0UL - bits : bits, 10);
    return *this;
}

PrintWriterBase& PrintWriterBase::appendNumberAsDecimal(unsigned long value) {
    writeDigits(*this, false, value, 10);
    return *this;
}

PrintWriterBase& PrintWriterBase::appendNumberAsHex(unsigned long value) {
    writeDigits(*this, false, value, 16);
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
