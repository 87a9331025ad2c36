#include "Utility/Generic/Portable/StringBuffer.h"

#include "NumberDigits.h"

namespace sup {

// ---- Numbers ----------------------------------------------------------------------------------------------

// `granted` is the room that is made, as formatting would; it holds any number.
template <class T>
auto StringBufferBaseTemplate<T>::appendDecimal(size_type granted, bool negative, unsigned long magnitude)
    -> StringBufferBaseTemplate& {
    make_room(granted);
    if (negative) {
        *m_pPos++ = static_cast<T>('-');
    }
    m_pPos = writeDecimal(m_pPos, magnitude);
    return *this;
}

template <class T>
auto StringBufferBaseTemplate<T>::appendNumberAsDecimal(unsigned int value) -> StringBufferBaseTemplate& {
    return appendDecimal(32, false, value);
}

template <class T>
auto StringBufferBaseTemplate<T>::appendNumberAsDecimal(int value) -> StringBufferBaseTemplate& {
    return appendDecimal(32, value < 0, magnitudeOf(value));
}

template <class T>
auto StringBufferBaseTemplate<T>::appendNumberAsDecimal(long value) -> StringBufferBaseTemplate& {
    return appendDecimal(64, value < 0, magnitudeOf(value));
}

template <class T>
auto StringBufferBaseTemplate<T>::appendNumberAsDecimal(unsigned long value) -> StringBufferBaseTemplate& {
    return appendDecimal(64, false, value);
}

template <class T>
auto StringBufferBaseTemplate<T>::appendNumberAsHex(unsigned int value) -> StringBufferBaseTemplate& {
    make_room(32);
    m_pPos = writeHex(m_pPos, value);
    return *this;
}

// ---- The types that the library names ---------------------------------------------------------------------

template <>
StringBufferBaseTemplate<char>& StringBufferBaseTemplate<char>::appendFormatted(size_type n,
                                                                                const char* format, ...) {
    va_list args;
    va_start(args, format);
    appendFormatted2(n, format, args);
    va_end(args);
    return *this;
}

template class StringBufferBaseTemplate<wchar_t>;
template class StringBufferBaseTemplate<char>;
template class StringBufferTemplate<511, wchar_t>;
template class StringBufferTemplate<5119, wchar_t>;
template class StringBufferTemplate<256, wchar_t>;
template class StringBufferTemplate<511, char>;
template class StringBufferTemplate<5119, char>;

BStringBuffer& BStringBuffer::GetBuffer() {
    static BStringBuffer buffer;
    return buffer;
}

char* BStringBuffer::GetNextBuffer(int size) {
    unsigned int slot = m_nextBuffer.get();
    while (!m_nextBuffer.compareExchange(slot, (slot + 1) % kSlots)) {
    }
    HeapedAutoBuffer<char>& buffer = m_buffers[slot];
    buffer.growNoPreserve(size > 1 ? static_cast<std::size_t>(size) : 1);
    return buffer.data();
}

} // namespace sup
