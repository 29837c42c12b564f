#include "practice/directives.h"

#include <charconv>
#include <expected>
#include <fmt/format.h>
#include <optional>

#include "platform/text/text.h"

namespace vantrell::practice {
namespace {

using Kind = Directive::Kind;
using Reading = std::expected<Directive, std::string>;

/// More would only fill a disk or a memory.
constexpr std::int64_t largestFlood = 1LL << 30;  // bytes
constexpr double longestTick = 3600;              // seconds

/// "\n" stands for a line feed, since a directive is one line.
std::string unescaped(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 1 < text.size() && text[i + 1] == 'n') {
      out += '\n';
      ++i;
    } else {
      out += text[i];
    }
  }
  return out;
}

template <typename Number>
std::optional<Number> numberFrom(std::string_view text) {
  Number number{};
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return number;
}

template <Kind kind>
Reading readText(std::string_view argument) {
  return Directive{.kind = kind, .text = unescaped(argument)};
}

template <Kind kind>
Reading readName(std::string_view argument) {
  auto name = text::trimmed(argument);
  if (name.empty()) return std::unexpected("needs something behind the colon");
  return Directive{.kind = kind, .text = std::string(name)};
}

Reading readPlan(std::string_view argument) {
  Directive plan{.kind = Kind::plan};
  for (auto item : text::split(argument, ';')) {
    if (auto entry = text::trimmed(item); !entry.empty()) plan.items.emplace_back(entry);
  }
  if (plan.items.empty()) return std::unexpected("needs entries, as in PLAN:look;change;test");
  return plan;
}

Reading readWrite(std::string_view argument) {
  auto equals = argument.find('=');
  auto path = text::trimmed(argument.substr(0, equals));
  if (equals == std::string_view::npos || path.empty()) {
    return std::unexpected("needs a path and a content, as in WRITE:notes.txt=hello");
  }
  return Directive{.kind = Kind::write,
                   .text = std::string(path),
                   .content = unescaped(argument.substr(equals + 1))};
}

Reading readSlow(std::string_view argument) {
  auto seconds = numberFrom<double>(text::trimmed(argument));
  if (!seconds || !(*seconds > 0) || *seconds > longestTick) {
    return std::unexpected("needs a number of seconds, as in SLOW:0.5");
  }
  return Directive{.kind = Kind::slow, .seconds = *seconds};
}

Reading readDie(std::string_view argument) {
  Directive die{.kind = Kind::die};
  if (argument.empty()) return die;
  auto signal = numberFrom<std::int64_t>(text::trimmed(argument));
  if (!signal || *signal < 1 || *signal > 64) {
    return std::unexpected("takes the number of a signal, as in DIE:9");
  }
  die.amount = *signal;
  return die;
}

Reading readHang(std::string_view) {
  return Directive{.kind = Kind::hang};
}

/// A number of bytes behind `name=`; absent when the argument is for another name.
std::optional<Reading> bytesFor(std::string_view argument, std::string_view name, Kind kind) {
  if (!argument.starts_with(name)) return std::nullopt;
  auto bytes = numberFrom<std::int64_t>(argument.substr(name.size()));
  if (!bytes || *bytes < 1 || *bytes > largestFlood) {
    return std::unexpected(fmt::format("needs 1 to {} bytes behind \"{}\"", largestFlood, name));
  }
  return Directive{.kind = kind, .amount = *bytes};
}

Reading readFlood(std::string_view argument) {
  argument = text::trimmed(argument);
  if (auto output = bytesFor(argument, "stdout=", Kind::floodOutput)) return *output;
  if (auto error = bytesFor(argument, "stderr=", Kind::floodError)) return *error;
  return std::unexpected("takes stdout=bytes or stderr=bytes");
}

Reading readGarbage(std::string_view argument) {
  argument = text::trimmed(argument);
  if (argument == "half") return Directive{.kind = Kind::halfLine};
  if (argument == "utf8") return Directive{.kind = Kind::invalidUtf8};
  if (argument == "text") return Directive{.kind = Kind::noJson};
  if (auto line = bytesFor(argument, "long=", Kind::longLine)) return *line;
  return std::unexpected("takes half, utf8, text or long=bytes");
}

Reading readClose(std::string_view argument) {
  if (text::trimmed(argument) != "stdin") return std::unexpected("takes stdin");
  return Directive{.kind = Kind::closeInput};
}

struct Row {
  std::string_view word;
  std::string_view argument;  // as help shows it, with its colon
  bool standsAlone;           // a line may hold the word alone
  std::string_view help;
  Reading (*read)(std::string_view argument);
};

constexpr Row table[] = {
    {"SAY", ":text", false, "streams the text; \\n in it is a line feed", readText<Kind::say>},
    {"THINK", ":text", false, "streams the text as a thought", readText<Kind::think>},
    {"STREAM", ":path", false,
     "streams the text of a file of the project in pieces of a few letters",
     readName<Kind::stream>},
    {"PLAN", ":a;b;c", false, "shows a plan; each directive that follows completes a step",
     readPlan},
    {"ASK", ":question", false, "asks for permission and says what was answered",
     readName<Kind::ask>},
    {"READ", ":path", false, "reads a file of the project", readName<Kind::read>},
    {"WRITE", ":path=content", false, "writes a file of the project, after asking", readWrite},
    {"RUN", ":command", false, "runs a shell command in a terminal, after asking",
     readName<Kind::run>},
    {"SLOW", ":seconds", false, "a tick every so many seconds, 60 times or until cancelled",
     readSlow},
    {"FAIL", ":text", false, "ends the turn with this error", readText<Kind::fail>},
    {"REFUSE", ":text", false, "says the text and ends the turn as a refusal",
     readText<Kind::refuse>},
    {"HANG", "", true, "never answers; cancelling ends it", readHang},
    {"DIE", "[:signal]", true, "ends the process within the turn, by a signal if given", readDie},
    {"FLOOD", ":stdout=bytes|stderr=bytes", false,
     "sends so much text in small pieces, or diagnostics", readFlood},
    {"GARBAGE", ":half|utf8|text|long=bytes", false,
     "breaks the protocol; with half a line the process ends", readGarbage},
    {"CLOSE", ":stdin", false, "closes its standard input and goes on", readClose},
};

/// The line as a directive; absent when it does not begin with a directive word.
std::optional<Directive> readLine(std::string_view line) {
  for (const Row& row : table) {
    if (!line.starts_with(row.word)) continue;
    auto rest = line.substr(row.word.size());
    if (rest.empty() ? !row.standsAlone : rest.front() != ':') continue;
    auto reading = row.read(rest.empty() ? rest : rest.substr(1));
    if (reading) return *reading;
    return Directive{
        .kind = Kind::unclear,
        .text = fmt::format("{} {}. \"help\" lists the directives.", row.word, reading.error())};
  }
  return std::nullopt;
}

}  // namespace

std::string_view userRequest(std::string_view prompt) {
  auto request = prompt;
  for (auto line : text::lines(prompt)) {
    if (text::trimmed(line) != "USER REQUEST:") continue;
    request = prompt.substr(static_cast<std::size_t>(line.data() + line.size() - prompt.data()));
  }
  return request;
}

std::vector<Directive> readDirectives(std::string_view prompt) {
  std::vector<Directive> directives;
  for (auto line : text::lines(userRequest(prompt))) {
    if (auto directive = readLine(line)) directives.push_back(*std::move(directive));
  }
  return directives;
}

bool asksForHelp(std::string_view prompt) {
  return text::lowercased(text::trimmed(userRequest(prompt))) == "help";
}

std::string directiveHelp() {
  std::string help;
  for (const Row& row : table) {
    help += fmt::format("  {:<35}  {}\n", fmt::format("{}{}", row.word, row.argument), row.help);
  }
  return help;
}

}  // namespace vantrell::practice
