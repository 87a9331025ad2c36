#include "calls.h"

#ifdef BRIM_CHECKED
#    error "this file is the unchecked one"
#endif

namespace brimtest {

std::vector<std::size_t> uncheckedLayout() { return LAYOUT; }

std::vector<wchar_t> uncheckedReadsBehindTheEnd(const sup::String<wchar_t>& s,
                                                const RefStringTemplate<wchar_t>& view) {
    return {s.at(s.length()), view.at(view.length()), view[view.length()],
            view.substr(1, view.length()).end()[-1]};
}

void uncheckedPopBack(sup::String<wchar_t>& s) { s.pop_back(); }

} // namespace brimtest
