// What the practice agent can be told to do: lines of a prompt that begin with a directive word.
// Pure functions, any thread. What follows the word is read by the turn that carries it out.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vantrell::practice {

struct Directive {
  enum class Kind {
    say,
    think,
    stream,
    plan,
    ask,
    read,
    write,
    run,
    slow,
    fail,
    refuse,
    hang,
    die,
    flood,
    garbage,
    close,
  };
  Kind kind = Kind::say;
  std::string argument;  // after the colon, as it was written

  bool operator==(const Directive&) const = default;
};

/// "SAY" and the like.
std::string_view wordOf(Directive::Kind kind);

/// The directives of a prompt in their order.
std::vector<Directive> readDirectives(std::string_view prompt);

/// True when the request is the single word "help", in any case of letters.
bool asksForHelp(std::string_view prompt);

/// All directives with one line of help each, for --help and the prompt "help".
std::string directiveHelp();

}  // namespace vantrell::practice
