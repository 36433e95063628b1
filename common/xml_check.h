#pragma once

#include <string_view>

namespace xml {

/// Throws exc::CRuntimeExc, saying what is wrong, at which byte and in which attribute, unless the text is one that
/// TinyXML reads right.
///
/// TinyXML crashes on deep nesting, slows with the square of the nesting and of the attributes of an element, takes a
/// document cut inside its prolog for an empty one, drops an unknown entity, cuts a value at a NUL reference and takes
/// some invalid UTF-8. This check runs first, in one pass.
void CheckText(std::string_view text);

/// A hostile text may be of any length; its beginning, cut between two characters, says enough.
[[nodiscard]] std::string_view BeginningOf(std::string_view text);

/// True when the text is valid UTF-8 without a NUL byte.
[[nodiscard]] bool IsCleanUtf8(std::string_view text);

}  // namespace xml
