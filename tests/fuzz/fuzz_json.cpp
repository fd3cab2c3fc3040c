// Any bytes as a JSON document: refused with a sentence, or read to a value that survives JSON and YAML.
#include "expect.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace orvexa;
  common::Value value;
  const auto parse = [&] { return common::parse_json(test::text_of(data, size), "input", test::fuzz_limits); };
  if (!test::parses(parse, value)) return 0;
  const std::string written = common::json_text(value);
  test::expect(common::json_text(common::parse_json(written, "written")) == written,
               "what was written is read back the same");
  test::expect(common::json_line(common::parse_yaml(common::yaml_text(value), "yaml")) == common::json_line(value),
               "a value survives YAML");
  return 0;
}
