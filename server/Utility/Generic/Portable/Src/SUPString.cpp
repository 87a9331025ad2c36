#include "Utility/Generic/Portable/SUPString.h"

#include "Utility/Generic/Portable/SUPBString.h" // the members that take or give a byte string

namespace sup {

template struct string_details::StringData<wchar_t>;
template struct string_details::StringData<char>;
template class String<wchar_t>;
template class String<char>;

} // namespace sup
