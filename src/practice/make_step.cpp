#include "practice/make_step.h"

#include <utility>

#include "practice/fault_steps.h"
#include "practice/speech_steps.h"
#include "practice/tool_steps.h"

namespace vantrell::practice {

std::shared_ptr<Step> makeStep(const Directive& directive, const StepContext& context,
                               const Step::Finish& finish) {
  using Kind = Directive::Kind;
  auto speech = [&](HistoryItem::Kind kind, StepEnd end) {
    return std::make_shared<SpeechStep>(context, finish, kind, directive.text, std::move(end));
  };
  switch (directive.kind) {
    case Kind::say:
    case Kind::unclear: return speech(HistoryItem::Kind::agent, {});
    case Kind::stream: return SpeechStep::ofFile(context, finish, directive.text);
    case Kind::think: return speech(HistoryItem::Kind::thought, {});
    case Kind::refuse: return speech(HistoryItem::Kind::agent, {StepEnd::Kind::refused, {}});
    case Kind::fail:
      return std::make_shared<EndStep>(context, finish,
                                       StepEnd{StepEnd::Kind::failed, directive.text});
    // The turn keeps the plan, since it lasts longer than a step.
    case Kind::plan: return std::make_shared<EndStep>(context, finish, StepEnd{});
    case Kind::ask: return std::make_shared<AskStep>(context, finish, directive.text);
    case Kind::read: return std::make_shared<ReadStep>(context, finish, directive.text);
    case Kind::write:
      return std::make_shared<WriteStep>(context, finish, directive.text, directive.content);
    case Kind::run: return std::make_shared<RunStep>(context, finish, directive.text);
    case Kind::slow: return std::make_shared<TickStep>(context, finish, directive.seconds);
    case Kind::hang: return std::make_shared<HangStep>(context, finish);
    case Kind::floodOutput:
    case Kind::floodError:
      return std::make_shared<FloodStep>(context, finish, directive.kind, directive.amount);
    case Kind::die:
    case Kind::halfLine:
    case Kind::invalidUtf8:
    case Kind::noJson:
    case Kind::longLine:
    case Kind::closeInput: return std::make_shared<FaultStep>(context, finish, directive);
  }
  std::unreachable();
}

}  // namespace vantrell::practice
