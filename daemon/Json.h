#pragma once

// The daemon speaks strict JSON (RFC 8259). nlohmann's parser refuses raw control characters in
// strings, bad escapes, malformed numbers, invalid UTF-8 and trailing bytes, and keeps integers
// exact, which is what a reply needs. One alias so the rest of the code names a single type.
#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string_view>

namespace harkline {

using Json = nlohmann::json;

// Parses one JSON text strictly; the discarded value on any error. Unlike the library alone, a
// raw NUL byte anywhere is an error: the library stops reading at one, which would let bytes after
// a NUL pass unseen, and a NUL is never valid JSON outside a string nor raw inside one.
//
// Two flaws of otherwise valid JSON are let through, because one odd value must not void a whole
// reply: a \u escape of a lone UTF-16 surrogate (what a JavaScript or Python writer emits after
// cutting a text inside an emoji) reads as U+FFFD, and a number beyond the range of a double
// (1e400) reads as null, so the member takes its default. Everything else the strict grammar
// refuses stays refused.
Json parseReply(std::string_view text);

// A JSON number whose value is whole and fits a signed 64-bit integer: 8080 and 8080.0 give
// 8080; 8080.5, "8080", true and 2^63 give nothing. Booleans are not numbers here, although some
// JSON libraries blur the two: the daemon sends distinct types and a flag read as a count would
// hide a daemon bug rather than show it.
std::optional<std::int64_t> wholeNumber(const Json& value);

// The member `key` of `object` when `object` is an object that has it; nullptr otherwise.
const Json* member(const Json& object, const char* key);

} // namespace harkline
