#include "Utility/Generic/Portable/transcoderbase.h"

namespace sup::transcodeimpl {

TranscoderImplBase::~TranscoderImplBase() = default;

} // namespace sup::transcodeimpl
