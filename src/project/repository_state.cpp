#include "project/repository_state.h"

#include "platform/text/text.h"
#include "project/git.h"

namespace vantrell {

namespace {

using Arguments = std::vector<std::string>;

/// A folder that does not answer must not hold a task up for ever.
constexpr std::chrono::seconds longestQuestion{30};
/// Bytes of one answer: some hundred files. Whoever takes over can ask git for the rest.
constexpr std::size_t keptOfAnswer = 16 << 10;

const std::vector<Arguments>& questions() {
  static const std::vector<Arguments> all{
      {"status", "--short", "--branch"}, {"diff", "--stat"}, {"diff", "--cached", "--stat"}};
  return all;
}

/// As for a pipe, whatever the user likes to see: an agent reads no colors.
GitOptions plainAnswers() {
  GitOptions options{.isReadOnly = true, .keptOutput = keptOfAnswer, .limit = longestQuestion};
  for (const char* name : {"color.ui", "color.status", "color.diff"}) {
    options.configuration.emplace_back(name, "false");
  }
  return options;
}

}  // namespace

std::string repositoryState(const std::string& path, std::stop_token stop) {
  std::vector<std::string> blocks;
  for (const auto& question : questions()) {
    GitOptions options = plainAnswers();
    options.stop = stop;
    const GitResult result = runGit(path, question, std::move(options));
    if (result.hasRunOut || stop.stop_requested()) break;  // nor would it answer the next one
    const std::string answer = result.succeeded() ? result.text() : "";
    if (!answer.empty()) {
      blocks.push_back("$ git " + text::joined(question, " ") + "\n" + answer);
    }
  }
  return text::joined(blocks, "\n\n");
}

}  // namespace vantrell
