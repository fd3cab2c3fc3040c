// Any bytes as an expression over bands: refused with a sentence, or read to a program that gives each pixel a finite
// value or none, the same however the pixels stand in a row.
#include <cmath>
#include <limits>
#include <vector>

#include "expect.h"
#include "orvexa/model/measures/expression.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace orvexa;
  try {
    const model::Expression expression(test::text_of(data, size));
    test::expect(!expression.names().empty(), "an expression names a band");
    test::expect(model::Expression(expression.text()).names() == expression.names(), "it is read the same again");

    const std::vector<double> row{0.25,        -0.5, 0, 1, 1e308, 1e-308, std::numeric_limits<double>::infinity(),
                                  std::nan("")};
    std::vector<std::vector<double>> bands;
    for (std::size_t k = 0; k < expression.names().size(); ++k) {
      bands.push_back(row);
      for (double& value : bands.back()) value *= 1 + static_cast<double>(k);
    }
    std::vector<double> together(row.size());
    model::Expression::Rows(expression, row.size()).evaluate(bands, together);
    model::Expression::Rows one(expression, 1);
    for (std::size_t x = 0; x < row.size(); ++x) {
      test::expect(!std::isinf(together[x]), "a pixel has a finite value or none");
      std::vector<std::vector<double>> pixel;
      for (const auto& band : bands) pixel.push_back({band[x]});
      std::vector<double> alone(1);
      one.evaluate(pixel, alone);
      test::expect(alone[0] == together[x] || (std::isnan(alone[0]) && std::isnan(together[x])),
                   "a pixel does not depend on its neighbours");
    }
  } catch (const std::invalid_argument& failure) {
    const std::string_view sentence = failure.what();
    test::expect(sentence.starts_with("The expression ") || sentence.starts_with("An expression "),
                 "a refusal begins with what it is about");
    test::expect(sentence.ends_with('.'), "a refusal is a sentence");
    test::expect(common::is_valid_utf8(sentence), "a refusal is UTF-8");
    for (const char c : sentence) test::expect(static_cast<unsigned char>(c) >= 0x20, "a refusal is one line");
  }
  return 0;
}
