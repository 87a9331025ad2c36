#include "Utility/Generic/Portable/StringBuffer.h"

namespace sup {

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
