// Keeps the data on standard output clean: nothing that any library prints may land between it.
//
// Before the first constructor of any shared library runs, the program's standard output moves to another
// descriptor, and descriptor 1 becomes a second standard error. So stdout, std::cout and everything that is
// written to descriptor 1 show up as messages, and data reaches the real standard output through the
// descriptor here alone.
//
// What libraries print while they are loaded is held until main() calls showLoadMessages(), or the program
// aborts.
#pragma once

namespace brimtool {

/// The descriptor of the program's real standard output; -1 when the program was started without one.
int dataOutput() noexcept;

/// Prints the held messages, but for the library's report of a locale file that is not there: most machines
/// have none, and the built-in rules then hold.
void showLoadMessages();

} // namespace brimtool
