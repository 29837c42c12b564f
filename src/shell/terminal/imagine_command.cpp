#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include "platform/terminal/terminal.h"
#include "platform/text/text.h"
#include "records/stores/imagine_store.h"
#include "shell/terminal/commands.h"
#include "shell/terminal/imagine_session.h"
#include "shell/terminal/long_work.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/run_preparation.h"
#include "shell/terminal/standard_output.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"
#include "shell/terminal/user_path.h"
#include "shell/terminal/with_app.h"

namespace vantrell::shell {

namespace {

constexpr CommandOption options[] = {
    {"--answer", "KIND", "answer every question: allow_once, allow_always or reject_once"},
    {"--executable", "PATH", "Grok's program, when it is not in a usual place"},
    {"--json", "", "for scripts: one JSON object a line"},
};

// ---- what there is ------------------------------------------------------------------------------

using Items = std::vector<ImagineItem>;

std::string asJson(const ImagineItem& item) {
  std::string line;
  JsonWriter writer(line);
  writeJson(writer, item);
  return line + "\n";
}

/// The library as it is stored: no lock is needed to look at it.
Items storedItems() {
  return ImagineStore::peek(UserFolders{}.orOwn().support);
}

std::expected<Items, UsageError> findItems(const Items& items, std::span<const std::string> words) {
  Items found;
  for (const auto& word : words) {
    const auto prefix = idPrefix(word);
    Items meant;
    std::ranges::copy_if(items, std::back_inserter(meant), [&](const ImagineItem& item) {
      return prefix && beginsWith(item.id, *prefix);
    });
    if (meant.size() > 1) {
      return usageError(fmt::format("{} pictures and films begin with {}. Give more of the ID.",
                                    meant.size(), onOneLine(word)));
    }
    if (meant.empty()) {
      return usageError(fmt::format(
          "There is no picture or film {}. \"vantrell imagine\" lists them with their IDs.",
          onOneLine(word)));
    }
    if (std::ranges::find(found, meant.front()) == found.end()) found.push_back(meant.front());
  }
  return found;
}

int list(const CommandArguments& arguments, const Environment& environment) {
  const Items items = storedItems();
  if (const auto problem = ImagineStore::problem(UserFolders{}.orOwn().support)) {
    complain(*problem +
             " Its files are beside it. The next picture that is made begins a new list and keeps "
             "this one.");
    return exitStatus::failed;
  }
  StandardOutput out;
  if (arguments.has("--json")) {
    for (const auto& item : items) out.write(asJson(item));
    return out.finish(exitStatus::completed);
  }
  const auto style = TerminalStyle::of(STDOUT_FILENO, environment);
  if (items.empty()) {
    out.write(style.dim(
        asTyped("No pictures or films yet. To make one: vantrell imagine image \"a red fox\"\n")));
    return out.finish(exitStatus::completed);
  }
  TextTable table({{"ID"},
                   {"KIND"},
                   {.heading = "MADE", .leavesAt = 1},
                   {.heading = "PROMPT", .least = 16},
                   {.heading = "FILE", .least = 12, .leavesAt = 2, .cutsFront = true}});
  const Date now = Date::current();
  for (const auto& item : items) {
    table.add({{shortID(item.id), &TerminalStyle::cyan},
               {std::string(rawText(item.kind))},
               {ago(item.createdAt, now), &TerminalStyle::dim},
               {item.prompt},
               {withTilde(item.localPath), &TerminalStyle::dim}});
  }
  out.write(table.text(style, columnsForTables(STDOUT_FILENO)));
  return out.finish(exitStatus::completed);
}

int tellPaths(const CommandArguments& arguments) {
  const auto found = findItems(storedItems(), std::span(arguments.words).subspan(1));
  if (!found) return refuse(found.error());
  StandardOutput out;
  for (const auto& item : *found) {
    out.write(arguments.has("--json") ? asJson(item) : item.localPath + "\n");
  }
  return out.finish(exitStatus::completed);
}

int remove(const CommandArguments& arguments) {
  return withApp({}, [&](RunLoop&, VantrellApp& app) {
    ImagineController& desk = *app.model().imagine;
    const auto found = findItems(desk.imagineItems(), std::span(arguments.words).subspan(1));
    if (!found) return refuse(found.error());
    StandardOutput out;
    for (const auto& item : *found) {
      desk.deleteImagineItem(item.id);
      if (arguments.has("--json")) {
        out.write(asJson(item));
      } else if (files::exists(item.localPath)) {
        out.write(fmt::format("{}  forgotten; the file could not be moved to the Trash: {}\n",
                              shortID(item.id), sanitized(item.localPath)));
      } else {
        out.write(
            fmt::format("{}  moved to the Trash: {}\n", shortID(item.id), onOneLine(item.prompt)));
      }
    }
    return out.finish(exitStatus::completed);
  });
}

// ---- making one ---------------------------------------------------------------------------------

struct Wish {
  ImagineKind kind = ImagineKind::image;
  std::string prompt;
  bool wasRead = false;  // from standard input, which is used up then
  std::optional<std::string> executable;
};

std::expected<Wish, UsageError> readWish(const CommandArguments& arguments,
                                         const Environment& environment) {
  Wish wish{.kind = *fromRawText<ImagineKind>(arguments.words[0]), .prompt = arguments.words[1]};
  if (const auto named = arguments.value("--executable")) {
    auto found = findProgram(*named, environment);
    if (!found) return std::unexpected(std::move(found.error()));
    wish.executable = *std::move(found);
  }
  wish.wasRead = wish.prompt == "-";
  if (wish.wasRead) wish.prompt = terminal::readStandardInput();
  wish.prompt = text::trimmed(text::repaired(wish.prompt));
  if (wish.prompt.empty()) {
    return usageError(
        "The prompt is empty. Say what should be made, as in vantrell imagine image \"a red fox\"");
  }
  return wish;
}

int perform(LongWork& work, const Wish& wish, const CommandArguments& arguments,
            const Environment& environment) {
  auto& [loop, app, sink, wasAbandoned] = work;
  // Where Grok is found only there, its program and its interpreter need the login shell's PATH.
  findWithUserPath(loop, *app.model().runtimes, [&] {
    return app.model().router->providerAvailable(AgentProvider::grok) ? std::optional(true)
                                                                      : std::nullopt;
  });
  const auto kind = AnswerSource::kindOfInput(wish.wasRead);
  const auto write = [&sink](std::string_view bytes) { sink.write(bytes); };
  const bool answersAreTyped = kind == AnswerSource::Kind::terminal && !arguments.has("--answer");
  std::unique_ptr<ImagineObserver> printer;
  if (arguments.has("--json")) {
    printer = std::make_unique<ImagineJsonPrinter>(write);
  } else {
    printer = std::make_unique<ImaginePrinter>(write, TerminalStyle::of(STDOUT_FILENO, environment),
                                               answersAreTyped);
  }
  AnswerSource answers(loop, STDIN_FILENO, kind);
  ImagineSession session({.loop = loop,
                          .model = app.model(),
                          .observer = *printer,
                          .answers = answers,
                          .complain =
                              [&](std::string_view text) {
                                printer->interrupted();
                                sink.flush(momentToFlush);
                                complain(text);
                              },
                          .answerKind = arguments.value("--answer")});
  sink.onBroken = [&session] { session.stop(); };
  const int status = session.run(wish.prompt, wish.kind);
  sink.onBroken = nullptr;
  wasAbandoned = session.wasAbandoned();
  return status;
}

int make(const CommandArguments& arguments, const Environment& environment) {
  const auto wish = readWish(arguments, environment);
  if (!wish) return refuse(wish.error());
  VantrellOptions vantrell;
  vantrell.customExecutable = [&wish](AgentProvider asked) {
    return asked == AgentProvider::grok ? wish->executable : std::nullopt;
  };
  return performLongWork(std::move(vantrell), [&](LongWork& work) {
    return perform(work, *wish, arguments, environment);
  });
}

// ---- which of them ------------------------------------------------------------------------------

std::optional<std::string> whatIsWrong(const CommandArguments& arguments) {
  static constexpr std::string_view known[] = {"list", "image", "video", "path", "remove"};
  const std::string action = arguments.words.empty() ? "list" : arguments.words.front();
  const std::size_t more = arguments.words.empty() ? 0 : arguments.words.size() - 1;
  const bool makes = fromRawText<ImagineKind>(action).has_value();
  if (std::ranges::find(known, action) == std::end(known)) {
    return fmt::format(
        "There is no \"imagine {}\".{} To make a picture: vantrell imagine image \"{}\"",
        onOneLine(action), suggestion(action, known),
        onOneLine(fmt::format("{}", fmt::join(arguments.words, " "))));
  }
  if (action == "list" && more != 0) return "\"imagine list\" takes nothing else.";
  if (makes && more != 1) {
    return fmt::format("The prompt is one argument: vantrell imagine {} \"a red fox\"", action);
  }
  if (action != "list" && more == 0) {
    return fmt::format("\"imagine {0}\" needs more: vantrell imagine {0} ID", action);
  }
  for (const std::string_view option : {"--answer", "--executable"}) {
    if (!makes && arguments.has(option)) {
      return fmt::format("{} goes with \"imagine image\" and \"imagine video\" only.", option);
    }
  }
  return whatIsWrongWithAnswer(arguments.value("--answer"));
}

int imagine(const CommandArguments& arguments, const Environment& environment) {
  if (auto wrong = whatIsWrong(arguments)) return refuse({*std::move(wrong)});
  if (arguments.words.empty() || arguments.words.front() == "list") {
    return list(arguments, environment);
  }
  if (arguments.words.front() == "path") return tellPaths(arguments);
  if (arguments.words.front() == "remove") return remove(arguments);
  return make(arguments, environment);
}

}  // namespace

const Command imagineCommand{
    .name = "imagine",
    .parameters = "[image or video \"PROMPT\" | path or remove ID...]",
    .summary = "make pictures and films with Grok; list them",
    .options = options,
    .mostWords = std::string_view::npos,
    .introduction =
        "Alone: lists the library of pictures and films, newest first. ID is a beginning of one's\n"
        "ID.\n"
        "\n"
        "  image \"PROMPT\"     make a picture; a prompt of - is read from standard input\n"
        "  video \"PROMPT\"     make a film\n"
        "  path ID...         where the files are, one a line\n"
        "  remove ID...       move the files to the Trash and forget them",
    .closing =
        "Grok Build makes them, which must be installed and signed in. It may ask before it acts,\n"
        "as far as the mode says so. Ctrl-C stops it; what was copied stays.\n"
        "\n"
        "Exit status: 0 done, 1 failed or nothing was made, 2 wrong usage, 130 stopped.\n"
        "\n"
        "Examples:\n"
        "  vantrell imagine image \"a red fox in the snow\"\n"
        "  xdg-open \"$(vantrell imagine path 3F2A91C0)\"",
    .run = imagine,
};

}  // namespace vantrell::shell
