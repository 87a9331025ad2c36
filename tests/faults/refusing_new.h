// The program's operator new, counted and refused together with the requests to the allocator: what the
// library's standard containers ask for does not pass the allocator gateway everywhere.
#pragma once

namespace brimtest {

/// Blocks that operator new gave and nobody deleted. AllocationRefusal counts its requests too.
long liveBlocksOfOperatorNew() noexcept;

} // namespace brimtest
