#include "engine/imagine/imagine_media_extractor.h"

#include <gtest/gtest.h>
#include <random>

#include "platform/text/text.h"

namespace vantrell {
namespace {

using Paths = std::set<std::string>;

TEST(ImagineMediaExtractor, FindsPathsWhereverAnUpdateHoldsThem) {
  const struct {
    const char* what;
    Json value;
    Paths paths;
  } cases[] = {
      {"prose", "Saved to /tmp/a.png, enjoy.", {"/tmp/a.png"}},
      {"a blank inside",
       "at /home/ada/My Pictures/red fox.webp.",
       {"/home/ada/My Pictures/red fox.webp"}},
      {"quotes end a path and are no part of it",
       R"(see "/tmp/a b.png" and '/c.gif')",
       {"/tmp/a b.png", "/c.gif"}},
      {"no medium", "a.png, /tmp/a.pn", {}},
      {"lists and objects, not keys",
       Json::Array{JsonObject{{"/key.png", Json::Array{"/in.webm", 3, nullptr}}}},
       {"/in.webm"}},
      {"JSON in a text", R"({"out":["\/tmp\/a.png"]})", {"/tmp\\/a.png", "/tmp/a.png"}},
      {"JSON in JSON in a text", R"("{\"p\":\"\\u002ftmp\\u002fa.gif\"}")", {"/tmp/a.gif"}},
      {"the same twice", Json::Array{"/tmp/a.png", "/tmp/a.png"}, {"/tmp/a.png"}},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    EXPECT_EQ(ImagineMediaExtractor::paths({{"content", each.value}}), each.paths);
  }
}

TEST(ImagineMediaExtractor, FindsWhatThePatternMatches) {
  const auto pattern =
      text::Pattern::compile(R"(/(?:[^\n\r"']+?)\.(?:jpe?g|png|webp|gif|mp4|mov|m4v|webm))", true);
  constexpr std::string_view pieces[] = {"/", ".", "\n",   "\"",    "'",     "a",    "é",
                                         "j", " ", ".jpg", ".JPeG", ".webp", ".web", "m"};
  std::mt19937 random(7);
  for (int round = 0; round < 3000; ++round) {
    std::string line;
    for (auto count = random() % 14; count > 0; --count)
      line += pieces[random() % std::size(pieces)];
    Paths expected;
    for (const auto& match : pattern->findAll(line)) {
      expected.emplace(text::trimmed(std::string_view(line).substr(match.offset, match.length)));
    }
    EXPECT_EQ(ImagineMediaExtractor::paths({{"text", line}}), expected) << line;
  }
}

TEST(ImagineMediaExtractor, TakesAWholePictureInAnUpdate) {
  // Quadratic work on so many slashes would take hours.
  std::string data;
  while (data.size() < 4'000'000) data += "iVBORw0/KGgo/AAAANSU.hEUg";
  const auto found = ImagineMediaExtractor::paths({{"data", data + "\n"}, {"uri", "/a.png"}});
  EXPECT_EQ(found, Paths{"/a.png"});
}

}  // namespace
}  // namespace vantrell
