// The one export macro. The library is built with hidden visibility; what carries BRIMPORTABLE_API is its
// interface.
#pragma once

/// Marks what the library exports.
#define BRIMPORTABLE_API __attribute__((visibility("default")))
