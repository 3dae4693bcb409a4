// JSON of another machine, read within limits.
#ifndef QX_AGENT_BOUNDED_JSON_H
#define QX_AGENT_BOUNDED_JSON_H

#include <nlohmann/json.hpp>
#include <string_view>

namespace agent {

/// What a text may hold at most. A reader of a whole document needs up to a hundred
/// bytes of memory for a value of two, so the number of values is what bounds it.
struct JsonLimits {
  size_t depth = 16;       ///< of objects and lists within one another
  size_t values = 100000;  ///< members, elements and names together
};

/// Reads a text that is one JSON value, in time and memory that grow with its length
/// alone. Throws std::runtime_error, whose text begins with "it ", as in "it is nested
/// more than 16 deep".
nlohmann::json parseBounded(std::string_view text, const JsonLimits& limits = {});

}  // namespace agent

#endif
