// Operations of string buffers with inline arrays of several sizes, next to their model.
#include "fuzz_input.h"

#include "text/stringbuffer_session.h"

namespace {

template <std::size_t N, class T>
void operate(FuzzInput& input) {
    brimtest::StringBufferSession<N, T, FuzzInput> session(input);
    for (int i = 0; i < 100 && !input.done(); ++i) {
        session.step();
    }
}

} // namespace

void fuzzOne(FuzzInput& input) {
    constexpr void (*kForms[])(FuzzInput&) = {operate<1, char>,     operate<16, char>,
                                              operate<63, char>,    operate<1, wchar_t>,
                                              operate<16, wchar_t>, operate<511, wchar_t>};
    kForms[input.below(std::size(kForms))](input);
}
