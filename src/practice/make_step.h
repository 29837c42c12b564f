// Chooses the step for a directive. Main queue.
#pragma once

#include <memory>

#include "practice/step.h"

namespace vantrell::practice {

std::shared_ptr<Step> makeStep(const Directive& directive, const StepContext& context,
                               const Step::Finish& finish);

}  // namespace vantrell::practice
