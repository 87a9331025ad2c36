// The coders of the built-in code pages: the library's transcoders behind a judge.
#pragma once

#include "coders.h"

#include <memory>

namespace brimtool {

std::unique_ptr<Decoder> makePageDecoder(int codePage);
std::unique_ptr<Encoder> makePageEncoder(int codePage);

} // namespace brimtool
