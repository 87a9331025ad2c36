#include "transcodersbtable.h"

namespace sup::transcodeimpl {

template class TranscoderSBTable<256, 256, false>;
template class TranscoderSBTable<161, 734, false>;
template class TranscoderSBTable<161, 730, false>;
template class TranscoderSBTable<161, 1619, false>;
template class TranscoderSBTable<161, 975, true>;
template class TranscoderSBTable<164, 8365, false>;
template class TranscoderSBTable<128, 733, true>;
template class TranscoderSBTable<161, 1515, true>;

} // namespace sup::transcodeimpl
