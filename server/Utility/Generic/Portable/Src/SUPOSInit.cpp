// Start-up and shutdown: the one table of what happens when the library is loaded, read from top to bottom.
// Everything it does not name initialises itself on first use.
#include "LoadTime.h"

namespace {

using LoadTimeStep = void (*)();

constexpr LoadTimeStep kLoadTimeSteps[] = {
    sup::loadtime::buildLocaleMaps,
    sup::loadtime::computeAllocationPadding,
};

__attribute__((constructor)) void runLoadTimeSteps() {
    for (const LoadTimeStep step : kLoadTimeSteps) {
        step();
    }
}

} // namespace
