#include "shell/terminal/imagine_printer.h"

#include <fmt/format.h>

#include "records/stores/imagine_store.h"
#include "shell/terminal/json_member.h"
#include "shell/terminal/json_printer.h"
#include "shell/terminal/permission_prompt.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"
#include "views/labels.h"

namespace vantrell::shell {

namespace {

constexpr std::size_t answerLinesShown = 12;

}  // namespace

// ---- for people ---------------------------------------------------------------------------------

void ImaginePrinter::line(std::string_view styled) {
  if (std::exchange(isStatusShown_, false)) write_("\r\x1b[K");
  if (std::exchange(isLineOpen_, false)) write_("\n");
  write_(fmt::format("{}\n", styled));
}

void ImaginePrinter::progressed(ConnectionState::Kind state, std::string_view progress) {
  const bool isNews = std::exchange(state_, state) != state;
  const bool isAtWork =
      state == ConnectionState::Kind::connecting || state == ConnectionState::Kind::working;
  if (!isAtWork || progress.empty() || isLineOpen_) return;
  if (!style_.isLive()) {
    if (isNews) line(onOneLine(progress));
    return;
  }
  const int columns = TerminalStyle::usable(style_.size().columns);
  write_(fmt::format("\r\x1b[K{}\r", style_.dim(fitted(onOneLine(progress), columns))));
  isStatusShown_ = true;
}

void ImaginePrinter::itemAdded(const ImagineItem& item) {
  line(
      fmt::format("{}  {}  {}",
                  style_.green(item.kind == ImagineKind::video ? "✓ Video ready" : "✓ Image ready"),
                  style_.cyan(shortID(item.id)), sanitized(item.localPath)));
}

void ImaginePrinter::permissionAsked(const PermissionRequest& request) {
  for (const auto& each : permissionLines(request, style_)) line(each);
  permissionStillOpen(request);
}

void ImaginePrinter::permissionStillOpen(const PermissionRequest& request) {
  if (!showsAnswerPrompt_) return;
  if (std::exchange(isLineOpen_, true)) write_("\n");
  write_(style_.bold(answerPrompt(request)));
}

void ImaginePrinter::permissionAnswered(const PermissionOption* option) {
  line(style_.dim(fmt::format("→ {}", option ? onOneLine(option->name) : "Refused")));
}

void ImaginePrinter::interrupted() {
  if (!style_.isLive()) return;
  if (std::exchange(isStatusShown_, false)) write_("\r\x1b[K");
  if (std::exchange(isLineOpen_, false)) write_("\n");
}

void ImaginePrinter::ended(const ImagineEnd& end) {
  const std::string words = onOneLine(end.words);
  switch (end.kind) {
    case ImagineEnd::Kind::completed: interrupted(); break;  // the files have been told
    case ImagineEnd::Kind::failed: line(style_.red(fmt::format("✗ {}", words))); break;
    case ImagineEnd::Kind::stopped: line(style_.yellow(fmt::format("■ {}", words))); break;
  }
  for (const auto& each : boundedLines(end.answer, answerLinesShown)) {
    line(style_.dim(fmt::format("  {}", each)));
  }
}

// ---- for scripts --------------------------------------------------------------------------------

void ImagineJsonPrinter::permissionAsked(const PermissionRequest& request) {
  write_(permissionEvent(request));
}

void ImagineJsonPrinter::progressed(ConnectionState::Kind state, std::string_view progress) {
  write_(eventLine("progress", [&](JsonWriter& writer) {
    member(writer, "state", views::statusWord(state));
    member(writer, "text", progress);
  }));
}

void ImagineJsonPrinter::itemAdded(const ImagineItem& item) {
  write_(eventLine("item", [&](JsonWriter& writer) {
    writer.key("item");
    writeJson(writer, item);
  }));
}

void ImagineJsonPrinter::ended(const ImagineEnd& end) {
  write_(eventLine("end", [&](JsonWriter& writer) {
    member(writer, "outcome", rawText(end.kind));
    member(writer, "text", end.words);
    member(writer, "answer", end.answer);
  }));
}

}  // namespace vantrell::shell
