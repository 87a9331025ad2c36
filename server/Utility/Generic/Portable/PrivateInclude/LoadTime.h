// What modules do once when the library is loaded. The table in SUPOSInit.cpp calls them in its fixed order.
#pragma once

namespace sup::loadtime {

/// Reads VANTA_HX_ALLOCATION_PADDING (memoryallocatorgateway.cpp).
void computeAllocationPadding();

/// Builds the maps of the locale file (SUPTranscodeLocale.cpp).
void buildLocaleMaps();

} // namespace sup::loadtime
