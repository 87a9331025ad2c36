#include "transcodersbtable.h"

#include "kernels/kernels.h"

namespace sup::transcodeimpl {

namespace sbtable_details {

void decodeRun(const kernels::SingleByteDecoding& table, const char* src, std::size_t length,
               wchar_t* dst) noexcept {
    kernels::kernels().decodeSingleByte(table, src, length, dst);
}

std::size_t encodeRun(const kernels::SingleByteEncoding& table, const wchar_t* src, std::size_t length,
                      char* dst) noexcept {
    return kernels::kernels().encodeSingleByte(table, src, length, dst);
}

} // namespace sbtable_details

template class TranscoderSBTable<256, 256, false>;
template class TranscoderSBTable<161, 734, false>;
template class TranscoderSBTable<161, 730, false>;
template class TranscoderSBTable<161, 1619, false>;
template class TranscoderSBTable<161, 975, true>;
template class TranscoderSBTable<164, 8365, false>;
template class TranscoderSBTable<128, 733, true>;
template class TranscoderSBTable<161, 1515, true>;

} // namespace sup::transcodeimpl
