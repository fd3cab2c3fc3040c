#include "orvexa/model/failure_text.h"

#include <gtest/gtest.h>

#include <new>
#include <opencv2/core.hpp>
#include <stdexcept>

namespace orvexa::test {
namespace {

template <typename Failure>
std::string text_of(const Failure& thrown) {
  try {
    throw thrown;
  } catch (...) {
    return model::failure_text();
  }
}

TEST(FailureText, IsTheFailuresOwnText) {
  EXPECT_EQ(text_of(std::runtime_error("plot.png is empty.")), "plot.png is empty.");
}

TEST(FailureText, OfTheImageLibraryIsASentenceWithoutItsSourceFile) {
  EXPECT_EQ(text_of(cv::Exception(cv::Error::StsBadArg, "sizes differ", "add", "/src/arithm.cpp", 12)),
            "The image library failed in add: sizes differ.");
}

TEST(FailureText, OfALackOfMemorySaysSo) {
  EXPECT_EQ(text_of(std::bad_alloc()), "There is not enough memory.");
  EXPECT_EQ(text_of(cv::Exception(cv::Error::StsNoMem, "failed to allocate 1 bytes", "alloc", "alloc.cpp", 1)),
            "There is not enough memory.");
}

TEST(FailureText, OfSomethingThatIsNoExceptionIsASentenceToo) {
  EXPECT_EQ(text_of(42), "It failed without saying why.");
}

}  // namespace
}  // namespace orvexa::test
