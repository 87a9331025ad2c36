#include "Utility/Generic/Portable/SUPAutobuffer.h"

template class AutoBufferBase<wchar_t>;
template class AutoBufferBase<char>;
template class AutoBufferBase<unsigned short>;
template class AutoBuffer<unsigned short, 256>;
