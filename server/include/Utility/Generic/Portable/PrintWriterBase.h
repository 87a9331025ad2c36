// sup::PrintWriterBase: text output without any allocation. Values are formatted in fixed arrays on the stack
// and handed to a sink that a subclass supplies, so a writer works when the heap is exhausted or damaged.
//
// The number 0 prints nothing, in every decimal and hexadecimal form; callers rely on it. A writer is as
// thread-safe as its sink.
#pragma once

#include "Utility/Generic/Portable/RefString.h"
#include "Utility/Generic/Portable/SUPExport.h"
#include "Utility/Generic/Portable/SUPString.h"
#include "Utility/Generic/Portable/StringBufferBase.h"

#include <cstddef>

namespace sup {

/// Text output through a sink that a subclass supplies.
class BRIMPORTABLE_API PrintWriterBase {
public:
    /// Counts of characters.
    using size_type = std::size_t;

    /// Whether outputEndl() flushes: all but kNoFlush do.
    enum Flush { kFlush = 0, kOptionalFlush = 1, kNoFlush = 2 };

    virtual ~PrintWriterBase();
    /// The sink: takes `count` characters, which need not end in a zero.
    virtual void addChars(const wchar_t* chars, size_type count) = 0;
    /// The sink's own: passes on what it holds.
    virtual void flush() = 0;
    /// Writes "\n", then flushes unless told not to.
    virtual void outputEndl(Flush flush);

    /// "true" or "false".
    PrintWriterBase& operator<<(bool value);
    /// The characters.
    PrintWriterBase& operator<<(const String<wchar_t>& s);
    PrintWriterBase& operator<<(const RefStringTemplate<wchar_t>& ref);
    /// Null writes nothing.
    PrintWriterBase& operator<<(const wchar_t* text);
    /// Narrow text needs a PrintWriterWNarrowBase; without this it would print as a bool.
    PrintWriterBase& operator<<(const char* text) = delete;
    /// Stores a zero at the buffer's end.
    PrintWriterBase& operator<<(const StringBufferBaseTemplate<wchar_t>& buffer);
    /// In decimal; 0 prints nothing.
    PrintWriterBase& operator<<(int value) { return appendNumberAsDecimal(static_cast<long>(value)); }
    PrintWriterBase& operator<<(unsigned int value) {
        return appendNumberAsDecimal(static_cast<unsigned long>(value));
    }
    PrintWriterBase& operator<<(long value) { return appendNumberAsDecimal(value); }
    PrintWriterBase& operator<<(unsigned long value) { return appendNumberAsDecimal(value); }
    PrintWriterBase& operator<<(long long value) { return appendNumberAsDecimal(static_cast<long>(value)); }
    PrintWriterBase& operator<<(unsigned long long value) {
        return appendNumberAsDecimal(static_cast<unsigned long>(value));
    }
    /// A manipulator such as PrintWriterBase::endl.
    PrintWriterBase& operator<<(PrintWriterBase& (*manipulator)(PrintWriterBase&)) {
        return manipulator(*this);
    }

    /// In decimal; 0 prints nothing.
    PrintWriterBase& appendNumberAsDecimal(long value);
    PrintWriterBase& appendNumberAsDecimal(unsigned long value);
    /// Lower-case digits without a prefix.
    PrintWriterBase& appendNumberAsHex(unsigned int value) {
        return appendNumberAsHex(static_cast<unsigned long>(value));
    }
    PrintWriterBase& appendNumberAsHex(unsigned long value);
    /// `n` copies of `c`, 64 at a time, the rest last (an empty rest included).
    PrintWriterBase& append(size_type n, wchar_t c);

    /// `writer << PrintWriterBase::endl` ends the line and flushes.
    static PrintWriterBase& endl(PrintWriterBase& writer) {
        writer.outputEndl(kFlush);
        return writer;
    }
};

/// A writer that takes narrow text too, through a second sink.
class BRIMPORTABLE_API PrintWriterWNarrowBase : public PrintWriterBase {
public:
    using PrintWriterBase::addChars;
    using PrintWriterBase::operator<<;

    /// The sink of narrow text.
    virtual void addChars(const char* chars, size_type count) = 0;

    /// Null writes nothing.
    PrintWriterWNarrowBase& operator<<(const char* text);
    PrintWriterWNarrowBase& operator<<(const RefStringTemplate<char>& ref);
    PrintWriterWNarrowBase& operator<<(const StringBufferBaseTemplate<char>& buffer);
    PrintWriterWNarrowBase& operator<<(const String<char>& s);
};

} // namespace sup
