// sup::StringBufferTemplate<N, T>: a string buffer with N characters inline. sup::BStringBuffer: a
// process-wide ring of scratch buffers.
#pragma once

#include "Utility/Generic/Portable/SUPAtomic.h"
#include "Utility/Generic/Portable/SUPAutobuffer.h"
#include "Utility/Generic/Portable/SUPExport.h"
#include "Utility/Generic/Portable/StringBufferBase.h"

#include <cstddef>

namespace sup {

/// A string buffer with room for `N` characters inline.
template <std::size_t N, class T>
class StringBufferTemplate : public StringBufferBaseTemplate<T> {
    using Base = StringBufferBaseTemplate<T>;

public:
    /// Lengths in characters.
    using size_type = typename Base::size_type;

    /// Empty, with room for `initial` characters: inline when they fit there.
    explicit StringBufferTemplate(size_type initial = N) : Base(m_static, N) { this->reserve(initial); }
    /// A copy of the text.
    StringBufferTemplate(const StringBufferTemplate& other) : Base(m_static, N) { this->append(other); }
    explicit StringBufferTemplate(const Base& other) : Base(m_static, N) { this->append(other); }
    StringBufferTemplate& operator=(const StringBufferTemplate& other) {
        return *this = static_cast<const Base&>(other);
    }
    StringBufferTemplate& operator=(const Base& other) {
        if (&other != this) {
            this->reserve(other.length());
            this->clear();
            this->append(other);
        }
        return *this;
    }

private:
    mutable T m_static[N + 1]; // c_str() of a constant buffer writes the zero
};

extern template class BRIMPORTABLE_API StringBufferTemplate<511, wchar_t>;
extern template class BRIMPORTABLE_API StringBufferTemplate<5119, wchar_t>;
extern template class BRIMPORTABLE_API StringBufferTemplate<256, wchar_t>;
extern template class BRIMPORTABLE_API StringBufferTemplate<511, char>;
extern template class BRIMPORTABLE_API StringBufferTemplate<5119, char>;

/// Ten scratch buffers of bytes, handed out in turn: what a call returns is valid until ten more calls. Any
/// thread may call; two threads share a slot when more than ten are in use at once.
class BRIMPORTABLE_API BStringBuffer {
public:
    /// The one instance, made on first use and destroyed at exit.
    static BStringBuffer& GetBuffer();
    /// The next slot, with room for `size` bytes at least; its contents are undefined. Throws std::bad_alloc.
    char* GetNextBuffer(int size);

private:
    static constexpr unsigned int kSlots = 10;

    BStringBuffer() = default;

    ValueAtomic<unsigned int> m_nextBuffer;
    HeapedAutoBuffer<char> m_buffers[kSlots];
};

} // namespace sup
