#include "practice/directives.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

namespace vantrell::practice {
namespace {

using Kind = Directive::Kind;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::vector<Kind> kindsIn(std::string_view prompt) {
  std::vector<Kind> kinds;
  for (const auto& directive : readDirectives(prompt)) kinds.push_back(directive.kind);
  return kinds;
}

TEST(Directives, ReadEachWordWithItsArgument) {
  const struct {
    std::string_view line;
    Directive expected;
  } cases[] = {
      {"SAY:one\\ntwo", {.kind = Kind::say, .text = "one\ntwo"}},
      {"SAY: C:\\dir", {.kind = Kind::say, .text = " C:\\dir"}},
      {"THINK:hm", {.kind = Kind::think, .text = "hm"}},
      {"STREAM: answer.md", {.kind = Kind::stream, .text = "answer.md"}},
      {"PLAN:look; change ;;test", {.kind = Kind::plan, .items = {"look", "change", "test"}}},
      {"ASK: May I? ", {.kind = Kind::ask, .text = "May I?"}},
      {"READ:src/a b.txt", {.kind = Kind::read, .text = "src/a b.txt"}},
      {"WRITE:a.txt=x=1\\n", {.kind = Kind::write, .text = "a.txt", .content = "x=1\n"}},
      {"WRITE:empty.txt=", {.kind = Kind::write, .text = "empty.txt"}},
      {"RUN:echo a:b", {.kind = Kind::run, .text = "echo a:b"}},
      {"SLOW:0.25", {.kind = Kind::slow, .seconds = 0.25}},
      {"FAIL:rate limit", {.kind = Kind::fail, .text = "rate limit"}},
      {"REFUSE:no", {.kind = Kind::refuse, .text = "no"}},
      {"HANG", {.kind = Kind::hang}},
      {"DIE", {.kind = Kind::die}},
      {"DIE:9", {.kind = Kind::die, .amount = 9}},
      {"FLOOD:stdout=1000", {.kind = Kind::floodOutput, .amount = 1000}},
      {"FLOOD:stderr=1", {.kind = Kind::floodError, .amount = 1}},
      {"GARBAGE:half", {.kind = Kind::halfLine}},
      {"GARBAGE:utf8", {.kind = Kind::invalidUtf8}},
      {"GARBAGE:text", {.kind = Kind::noJson}},
      {"GARBAGE:long=67108864", {.kind = Kind::longLine, .amount = 67108864}},
      {"CLOSE:stdin", {.kind = Kind::closeInput}},
  };
  for (const auto& [line, expected] : cases) {
    EXPECT_THAT(readDirectives(line), ElementsAre(expected)) << line;
  }
}

TEST(Directives, SayWhatIsWrongInsteadOfGuessing) {
  for (std::string_view line :
       {"SLOW:soon", "SLOW:-1", "SLOW:0", "SLOW:nan", "SLOW:inf", "SLOW:1e99", "DIE:x", "DIE:0",
        "DIE:65", "WRITE:no-content", "WRITE:=x", "PLAN:;;", "READ:  ", "FLOOD:1000",
        "FLOOD:stdout=0", "FLOOD:stdout=99999999999999999999", "GARBAGE:other", "CLOSE:stdout"}) {
    auto directives = readDirectives(line);
    ASSERT_EQ(directives.size(), 1U) << line;
    EXPECT_EQ(directives[0].kind, Kind::unclear) << line;
    auto word = line.substr(0, line.find(':'));
    EXPECT_THAT(directives[0].text, HasSubstr(std::string(word))) << line;
  }
}

TEST(Directives, CountOnlyAtTheStartOfALine) {
  EXPECT_THAT(readDirectives("please SAY:x\n SAY:y\nsay:z\nSAYING:a\nSAY\nHANGING on"), IsEmpty());
  EXPECT_THAT(kindsIn("first\nSAY:a\r\nand then\nHANG\n"), ElementsAre(Kind::say, Kind::hang));
}

TEST(Directives, ComeFromThePersonAndNotFromTheTextAround) {
  EXPECT_THAT(kindsIn("RESPONSE STYLE\nSAY:host\n\nUSER REQUEST:\nTHINK:person"),
              ElementsAre(Kind::think));
  // A request that quotes an earlier one.
  EXPECT_THAT(kindsIn("USER REQUEST:\nSAY:old\nUSER REQUEST:\nHANG"), ElementsAre(Kind::hang));
  EXPECT_THAT(kindsIn("The line USER REQUEST: within a sentence\nHANG"), ElementsAre(Kind::hang));
}

TEST(Directives, HelpIsARequestOfItsOwn) {
  EXPECT_TRUE(asksForHelp("help"));
  EXPECT_TRUE(asksForHelp("STYLE: short\nUSER REQUEST:\n  Help \n"));
  EXPECT_FALSE(asksForHelp("help me"));
  EXPECT_FALSE(asksForHelp("help\nUSER REQUEST:\nHANG"));
}

TEST(Directives, HelpHasALineForEachWord) {
  auto help = directiveHelp();
  for (const char* word :
       {"SAY:", "THINK:", "STREAM:", "PLAN:", "ASK:", "READ:", "WRITE:", "RUN:", "SLOW:", "FAIL:",
        "REFUSE:", "HANG", "DIE", "FLOOD:", "GARBAGE:", "CLOSE:"}) {
    EXPECT_THAT("\n" + help, HasSubstr(std::string("\n  ") + word));
  }
}

}  // namespace
}  // namespace vantrell::practice
