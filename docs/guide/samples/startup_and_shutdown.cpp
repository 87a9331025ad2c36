#include "Utility/Generic/Portable/SUPOS.h"

#include <cassert>
#include <clocale>

namespace {

int mappings = 0;
int closed = 0;

class ServerInitializer : public UtilityInitializer {
protected:
    void InitializeMapping() override {
        UtilityInitializer::InitializeMapping();
        ++mappings; // the host's own work at start
    }
};

void closeLogs() { ++closed; }

} // namespace

int main() {
    // 1. The process: before anything asks for the code page or a directory.
    std::setlocale(LC_ALL, "");
    OSAbstraction::g_clientCodePage = 65001;

    // 2. The library.
    UtilityInitializer::SetMappingInitializer(new ServerInitializer);
    UtilityInitializer::Initialize();
    UtilityInitializer::RegisterShutdownCallback(&closeLogs);
    assert(UtilityInitializer::IsInitialized() && mappings == 1);

    // 3. Nested use is counted: the outermost Shutdown() is the one that works.
    UtilityInitializer::Initialize();
    UtilityInitializer::Shutdown();
    assert(UtilityInitializer::IsInitialized() && closed == 0);

    UtilityInitializer::Shutdown();
    assert(!UtilityInitializer::IsInitialized() && closed == 1);
}
