// The empty bases of the encoding functors. N is the narrow side (bytes), T the target or wide side; an N2T
// functor decodes, a T2N functor encodes.
#pragma once

namespace sup::transcodeimpl {

template <class S, class T>
struct EncodingFunctor {
    using source_char = S;
    using target_char = T;
};

template <class S, class T>
struct EncodingStatelessFunctor {
    using source_char = S;
    using target_char = T;
    struct State {};
};

} // namespace sup::transcodeimpl
