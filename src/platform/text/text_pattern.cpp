#include <chrono>
#include <ctime>
#include <unicode/regex.h>
#include <unicode/utext.h>

#include "platform/text/text.h"

namespace vantrell::text {
namespace {

using namespace std::chrono_literals;

/// Processor time that one call may take. Backtracking can be exponential in the text, and then no
/// larger limit would help either.
constexpr std::chrono::nanoseconds timeLimit = 500ms;
/// Bytes of backtracking state; ICU's own choice is 8 MB.
constexpr std::int32_t stackLimit = 16 * 1024 * 1024;
/// ICU reports in after each failed start of a match, which may cost less than reading the clock.
constexpr int startsPerClockReading = 64;

/// The processor time of this thread, so that a busy machine does not change what matches.
std::chrono::nanoseconds processorTime() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// Stops the matcher when its time is over. (ICU's own time limit starts again at each place where
/// a match could start, which a long text has many of.)
class Deadline {
 public:
  bool isAhead() { return processorTime() < end_; }
  bool isAheadAtStart() { return ++starts_ % startsPerClockReading != 0 || isAhead(); }

 private:
  std::chrono::nanoseconds end_ = processorTime() + timeLimit;
  int starts_ = 0;
};

UBool onSteps(const void* deadline, std::int32_t) {
  return static_cast<UBool>(static_cast<Deadline*>(const_cast<void*>(deadline))->isAhead());
}
UBool onStart(const void* deadline, std::int64_t) {
  return static_cast<UBool>(static_cast<Deadline*>(const_cast<void*>(deadline))->isAheadAtStart());
}

/// A text as ICU reads it.
class Source {
 public:
  explicit Source(std::string_view text, UErrorCode& status) {
    utext_openUTF8(&text_, text.data(), static_cast<std::int64_t>(text.size()), &status);
  }
  ~Source() { utext_close(&text_); }
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;
  UText* get() { return &text_; }

 private:
  UText text_ = UTEXT_INITIALIZER;
};

Pattern::Match matchOf(const icu::RegexMatcher& matcher, std::string_view text,
                       UErrorCode& status) {
  Pattern::Match match{};
  for (std::int32_t group = 0; group <= matcher.groupCount(); ++group) {
    const std::int64_t start = matcher.start64(group, status);
    const std::int64_t end = matcher.end64(group, status);
    if (U_FAILURE(status)) break;
    if (start < 0) {
      match.groups.emplace_back();
      continue;
    }
    const auto offset = static_cast<std::size_t>(start);
    const auto length = static_cast<std::size_t>(end - start);
    if (group == 0) {
      match.offset = offset;
      match.length = length;
    }
    match.groups.emplace_back(repaired(text.substr(offset, length)));
  }
  return match;
}

}  // namespace

struct Pattern::Impl {
  std::string expression;  // the compiled pattern keeps pointing into it
  std::unique_ptr<icu::RegexPattern> pattern;
};

Pattern::Pattern(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
Pattern::~Pattern() = default;
Pattern::Pattern(Pattern&&) noexcept = default;
Pattern& Pattern::operator=(Pattern&&) noexcept = default;

std::optional<Pattern> Pattern::compile(std::string_view expression, bool ignoreCase) {
  UErrorCode status = U_ZERO_ERROR;
  UParseError where;
  auto impl = std::make_unique<Impl>();
  impl->expression = expression;
  Source source(impl->expression, status);
  const std::uint32_t flags = ignoreCase ? UREGEX_CASE_INSENSITIVE : 0;
  if (U_FAILURE(status)) return std::nullopt;
  impl->pattern.reset(icu::RegexPattern::compile(source.get(), flags, where, status));
  if (U_FAILURE(status) || !impl->pattern) return std::nullopt;
  return Pattern(std::move(impl));
}

std::vector<Pattern::Match> Pattern::findAll(std::string_view text) const {
  std::vector<Match> matches;
  UErrorCode status = U_ZERO_ERROR;
  Source source(text, status);
  const std::unique_ptr<icu::RegexMatcher> matcher(impl_->pattern->matcher(status));
  if (U_FAILURE(status)) return matches;
  Deadline deadline;
  matcher->setStackLimit(stackLimit, status);
  matcher->setMatchCallback(onSteps, &deadline, status);
  matcher->setFindProgressCallback(onStart, &deadline, status);
  matcher->reset(source.get());
  while (U_SUCCESS(status) && matcher->find(status) && U_SUCCESS(status)) {
    Match match = matchOf(*matcher, text, status);
    if (U_SUCCESS(status)) matches.push_back(std::move(match));
  }
  return matches;
}

}  // namespace vantrell::text
