#include "Utility/Generic/Portable/RefString.h"

template class RefStringTemplate<wchar_t>;
template class RefStringTemplate<char>;
