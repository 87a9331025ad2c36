// Edits of byte strings that share, next to their model.
#include "fuzz_input.h"

#include "text/bytestring_session.h"

namespace {

template <class T>
void edit(FuzzInput& input) {
    brimtest::ByteStringSession<T, FuzzInput> session(input);
    for (int i = 0; i < 100 && !input.done(); ++i) {
        session.step();
        session.check();
    }
}

} // namespace

void fuzzOne(FuzzInput& input) {
    if (input.flip()) {
        edit<wchar_t>(input);
    } else {
        edit<char>(input);
    }
}
