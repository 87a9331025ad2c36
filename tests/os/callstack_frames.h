// Functions of a shared library that call back, each from a frame of its own.
#pragma once

namespace brimtest {

using Visit = void (*)(void* argument);

class Frames {
public:
    /// From an exported C++ function.
    static void callFromMember(int, Visit visit, void* argument);
    /// From a function without an exported symbol.
    static void callFromStatic(Visit visit, void* argument);
    /// From the `depth`th call of itself.
    static void callFromDepth(int depth, Visit visit, void* argument);
};

} // namespace brimtest

extern "C" {
void brimtest_callFromC(brimtest::Visit visit, void* argument);
/// Named like the encoding of a type.
void i(brimtest::Visit visit, void* argument);
}
