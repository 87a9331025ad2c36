// What modules do once when the library is loaded. The table in SUPOSInit.cpp calls them in its fixed order.
#pragma once

namespace sup::loadtime {

/// Reads VANTA_HX_ALLOCATION_PADDING (memoryallocatorgateway.cpp).
void computeAllocationPadding();

/// Reads HXS_STARTUP_LOG_TYPE (UniversalLoggerBase.cpp).
void readLoggerThreshold();

/// Names the default event source (SUPOSInternal.cpp).
void nameDefaultEventSource();

/// Reads the processor count into its cache (SUPOS.cpp). Throws an int where the system cannot tell it.
void countProcessors();

/// Seeds BrimRand_to_rand_r() from the clock (SUPOSProcess.cpp).
void seedRandomNumbers();

/// Builds the maps of the locale file (SUPTranscodeLocale.cpp).
void buildLocaleMaps();

/// Makes the thread-local storage manager, so that it outlives what uses it (SUPThreadLocalStorage.cpp).
void initializeThreadLocalStorage();

/// Measures the factors of the performance timer (SUPPerfTimeInterval.cpp).
void calibratePerfTimer();

/// Forgets the process's code page, which the other steps found under the locale "C" of a process that has
/// not yet chosen its own (SUPTranscode.cpp).
void forgetSystemCodePage() noexcept;

/// Forgets the product's home, which they read in that code page (SUPOS.cpp).
void forgetHomeDirectory() noexcept;

} // namespace sup::loadtime
