#include "practice/directives.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string_view>

namespace vantrell::practice {
namespace {

using Kind = Directive::Kind;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(Directives, CountOnlyAtTheStartOfALine) {
  EXPECT_THAT(readDirectives("please SAY:x\n SAY:y\nsay:z\nSAYING:a\nSAY\nHANGING on"), IsEmpty());
  EXPECT_THAT(readDirectives("first\nSAY: a:b\r\nand then\nHANG\nDIE:9\nDIE\n"),
              ElementsAre(Directive{Kind::say, " a:b"}, Directive{Kind::hang, ""},
                          Directive{Kind::die, "9"}, Directive{Kind::die, ""}));
}

TEST(Directives, ComeFromThePersonAndNotFromTheTextAround) {
  const Directive hang{Kind::hang, ""};
  for (const std::string_view prompt : {"RESPONSE STYLE\nSAY:host\n\nUSER REQUEST:\nHANG",
                                        // A request that quotes an earlier one.
                                        "USER REQUEST:\nSAY:old\nUSER REQUEST:\nHANG",
                                        "The line USER REQUEST: within a sentence\nHANG"}) {
    EXPECT_THAT(readDirectives(prompt), ElementsAre(hang)) << prompt;
  }
  EXPECT_TRUE(asksForHelp("STYLE: short\nUSER REQUEST:\n  Help \n"));
  EXPECT_FALSE(asksForHelp("help me"));
  EXPECT_FALSE(asksForHelp("help\nUSER REQUEST:\nHANG"));
}

}  // namespace
}  // namespace vantrell::practice
