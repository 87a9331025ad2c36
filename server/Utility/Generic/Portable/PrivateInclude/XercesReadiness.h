// Whether parsers can be made.
#pragma once

namespace sup {

/// False while Xerces could not be initialised: a parser that is made then ends the process.
/// XercesInitializer::GetXercesInit() tries again.
bool isXercesReady() noexcept;

} // namespace sup
