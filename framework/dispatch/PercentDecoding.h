// Percent-decoding of path parameters and query strings, and the split of a
// request URI into its path and query.
//
// Ownership: pure functions over caller-owned text. Threads: any.
#pragma once

#include <string>
#include <string_view>

namespace Orvan::Framework {

// "+" becomes a space; "%" and two hexadecimal digits become that byte. A "%"
// with fewer than two characters after it is copied as it is, and so are the
// three characters of a "%" whose next two are not both hexadecimal digits.
// Decoded bytes may be anything, NUL included.
std::string PercentDecode(std::string_view text);

// The part of a URI before the first "?" (all of it when there is none).
std::string_view PathOfUri(std::string_view uri) noexcept;

// The part of a URI after the first "?" (empty when there is none).
std::string_view QueryOfUri(std::string_view uri) noexcept;

}  // namespace Orvan::Framework
