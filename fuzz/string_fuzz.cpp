// Edits of strings that share, next to their model over std::basic_string.
#include "fuzz_input.h"

#include "string/string_session.h"

namespace {

template <class T>
void edit(FuzzInput& input) {
    brimtest::StringSession<T, FuzzInput> session(input);
    for (int i = 0; i < 100 && !input.done(); ++i) {
        session.edit();
        session.expectMatch();
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
