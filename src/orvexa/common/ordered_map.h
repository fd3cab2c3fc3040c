#pragma once

#include <tsl/ordered_map.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvexa::common {

struct StringHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const noexcept { return std::hash<std::string_view>{}(text); }
};

/// The one string-keyed map of the project: it keeps the order in which keys were first inserted, because people see
/// that order in tabs, tables and files. Lookup takes a std::string_view. Iterate with `for (const auto& [key, value] :
/// map)`; `iterator::value()` is the writable value. An empty map allocates nothing; references to values end with the
/// next insertion.
template <typename V>
using OrderedMap = tsl::ordered_map<std::string, V, StringHash, std::equal_to<>,
                                    std::allocator<std::pair<std::string, V>>, std::vector<std::pair<std::string, V>>>;

}  // namespace orvexa::common
