// Any bytes as a YAML document: refused with a sentence, or read to a value that survives being written and read again.
#include "expect.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace orvexa;
  common::Value value;
  const auto parse = [&] { return common::parse_yaml(test::text_of(data, size), "input", test::fuzz_limits); };
  if (!test::parses(parse, value)) return 0;
  const std::string written = common::yaml_text(value);
  const common::Value again = common::parse_yaml(written, "written");
  // As text, because a NaN does not equal itself.
  test::expect(common::yaml_text(again) == written, "what was written is read back the same");
  test::expect(again.dump() == value.dump(), "a value survives being written and read");
  return 0;
}
