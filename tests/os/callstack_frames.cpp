#include "callstack_frames.h"

namespace {

// Keeps a call before it from becoming a jump, which leaves no frame.
inline void stayInFrame() { __asm__ volatile("" ::: "memory"); }

__attribute__((noinline)) void callHere(brimtest::Visit visit, void* argument) {
    visit(argument);
    stayInFrame();
}

} // namespace

namespace brimtest {

void Frames::callFromMember(int, Visit visit, void* argument) {
    visit(argument);
    stayInFrame();
}

void Frames::callFromStatic(Visit visit, void* argument) {
    callHere(visit, argument);
    stayInFrame();
}

__attribute__((noinline)) void Frames::callFromDepth(int depth, Visit visit, void* argument) {
    if (depth > 1) {
        callFromDepth(depth - 1, visit, argument);
    } else {
        visit(argument);
    }
    stayInFrame();
}

} // namespace brimtest

void brimtest_callFromC(brimtest::Visit visit, void* argument) {
    visit(argument);
    stayInFrame();
}

void i(brimtest::Visit visit, void* argument) {
    visit(argument);
    stayInFrame();
}
