#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string_view>

#include "orvexa/common/serialisation.h"
#include "orvexa/common/text.h"

namespace orvexa::test {

/// Ends the program with a line that says what was promised, also in builds without assertions.
inline void expect(bool is_kept, const char* promise) {
  if (is_kept) return;
  std::fprintf(stderr, "Broken promise: %s\n", promise);
  std::abort();
}

inline std::string_view text_of(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

/// Small enough that whatever is read can also be written.
inline constexpr common::DocumentLimits fuzz_limits{.max_bytes = 1u << 20, .max_depth = 64, .max_nodes = 10'000};

/// Whatever the input: a value, or a runtime_error whose text is a sentence about the document.
template <typename Parse>
bool parses(const Parse& parse, common::Value& value) {
  try {
    value = parse();
    return true;
  } catch (const std::runtime_error& failure) {
    const std::string_view sentence = failure.what();
    expect(sentence.starts_with("input"), "a refusal begins with the document's name");
    expect(sentence.ends_with('.'), "a refusal is a sentence");
    expect(common::is_valid_utf8(sentence), "a refusal is UTF-8");
    return false;
  }
}

}  // namespace orvexa::test
