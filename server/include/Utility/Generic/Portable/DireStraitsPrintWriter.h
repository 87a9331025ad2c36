// sup::DireStraitsPrintWriter: diagnostics from a damaged process. It wraps a print writer, limits how much
// is written and, in dire straits, asks the kernel whether memory can be read before touching it. It never
// allocates.
//
// In dire-straits mode it holds a descriptor; when none could be opened, everything counts as unreadable.
#pragma once

#include "Utility/Generic/Portable/PrintWriterBase.h"
#include "Utility/Generic/Portable/SUPExport.h"

#include <cstddef>

namespace sup {

/// A print writer around another one that survives broken values. One object belongs to one thread.
class BRIMPORTABLE_API DireStraitsPrintWriter {
public:
    /// Counts of characters.
    using size_type = std::size_t;

    /// Whether memory is looked at before it is read (kDireStraits), or trusted (kCalmSeas).
    enum Mode { kCalmSeas = 0, kDireStraits = 1 };

    /// Writes to `subWriter`, which must outlive this object, until `capacity` characters of text are
    /// written. Then "\n..." follows, and nothing more is written. Numbers are not counted.
    DireStraitsPrintWriter(Mode mode, PrintWriterBase& subWriter, int capacity);
    ~DireStraitsPrintWriter();
    DireStraitsPrintWriter(const DireStraitsPrintWriter&) = delete;
    DireStraitsPrintWriter& operator=(const DireStraitsPrintWriter&) = delete;

    /// Values come by reference: in dire straits their own storage is checked. What cannot be read is written
    /// as "<unreadable>", a string as "<unreadable BrimWString>", a view as "<unreadable RefString>".
    DireStraitsPrintWriter& operator<<(const int& value);
    DireStraitsPrintWriter& operator<<(const unsigned int& value);
    DireStraitsPrintWriter& operator<<(const long& value);
    DireStraitsPrintWriter& operator<<(const unsigned long& value);
    DireStraitsPrintWriter& operator<<(const long long& value);
    DireStraitsPrintWriter& operator<<(const unsigned long long& value);
    DireStraitsPrintWriter& operator<<(const bool& value);
    DireStraitsPrintWriter& operator<<(const String<wchar_t>& s);
    DireStraitsPrintWriter& operator<<(const RefStringTemplate<wchar_t>& ref);
    DireStraitsPrintWriter& operator<<(const wchar_t* text);
    DireStraitsPrintWriter& operator<<(const StringBufferBaseTemplate<wchar_t>& buffer);
    DireStraitsPrintWriter& appendNumberAsHex(const unsigned int& value);
    DireStraitsPrintWriter& appendNumberAsHex(const int& value);
    DireStraitsPrintWriter& appendNumberAsHex(const unsigned long& value);
    DireStraitsPrintWriter& appendNumberAsHex(const long& value);
    DireStraitsPrintWriter& append(size_type n, wchar_t c);
    /// Always forwarded.
    void flush();
    /// Ends the line and flushes.
    void outputEndl();

    /// True when `length` bytes at `p` can be read; always true in calm seas.
    bool isAddressReadable(const void* p, size_type length) const;

private:
    template <class Value, class Write>
    DireStraitsPrintWriter& writeValue(const Value& value, Write write);
    void appendAndMaintainCapacity(const wchar_t* text, size_type length);
    void appendStringWhichIsTooLong(const wchar_t* text);
    bool isRangeReadable(const wchar_t* first, const wchar_t* last) const;
    void writeUnreadable(const wchar_t* what);

    PrintWriterBase& m_rSubWriter;
    Mode m_eMode;
    int m_nCapacity;
    int m_nFileDesc = -1;
};

} // namespace sup
