// The default error-message manager: prints one line on standard output and returns.
#pragma once

#include "Utility/Generic/Portable/SUPOSBase.h"

class BRIMPORTABLE_API SingleThreadedUtilityPortableErrorMessageManager
    : public UtilityPortableErrorMessageManager {
public:
    SingleThreadedUtilityPortableErrorMessageManager() = default;
    ~SingleThreadedUtilityPortableErrorMessageManager() override;

    /// Holds no state, so any thread may call.
    void ThrowErrorMessage(int code, const char* arg1, const char* arg2) override;

    /// The one default instance, built on the first call and destroyed at exit.
    static UtilityPortableErrorMessageManager* Make();
    /// Declared for callers of old, defined nowhere. Use UtilityPortableErrorMessageManager::Get().
    static UtilityPortableErrorMessageManager*
    GetUtilityPortableErrorMessageManager(UtilityPortableErrorMessageManager* mgr, bool replace);
};
