#include "views/approval_card.h"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>

#include "platform/text/text.h"
#include "platform/text/visible_text.h"

namespace vantrell::views {

namespace {

bool isRefusal(const PermissionOption& option) {
  return option.kind.starts_with("reject");
}

}  // namespace

ApprovalCard approvalCard(const PermissionRequest& request) {
  ApprovalCard card{.requestID = request.id, .title = text::onOneLine(request.title)};
  card.detail = text::visibleLines(request.detail);
  for (const auto& each : request.options) {
    card.options.push_back({.id = each.id,
                            .name = text::onOneLine(each.name),
                            .kind = each.kind,
                            .isRefusal = isRefusal(each)});
  }
  return card;
}

std::expected<const PermissionOption*, std::string> readAnswer(const PermissionRequest& request,
                                                               std::string_view word) {
  word = text::trimmed(word);
  std::size_t number = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
  const bool isNumber = error == std::errc() && end == word.data() + word.size();
  if (isNumber && number >= 1 && number <= request.options.size()) {
    return &request.options[number - 1];
  }
  const auto named = std::ranges::find(request.options, word, &PermissionOption::id);
  if (named != request.options.end()) return &*named;
  const std::string way =
      request.options.size() < 2
          ? std::string("Answer with 1.")
          : fmt::format("Answer with a number from 1 to {}.", request.options.size());
  if (word.empty()) return std::unexpected(way);
  return std::unexpected(fmt::format("\"{}\" is none of the options. {}",
                                     text::onOneLine(text::firstCharacters(word, 40)), way));
}

const PermissionOption* optionOfKind(const PermissionRequest& request, std::string_view kind) {
  const auto found = std::ranges::find(request.options, kind, &PermissionOption::kind);
  return found == request.options.end() ? nullptr : &*found;
}

std::vector<PermissionOption> optionsForDevices(const PermissionRequest& request) {
  std::vector<PermissionOption> options;
  std::ranges::copy_if(
      request.options, std::back_inserter(options),
      [](const PermissionOption& each) { return each.kind == "allow_once" || isRefusal(each); });
  return options;
}

}  // namespace vantrell::views
