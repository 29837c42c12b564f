// The functions that make text fit for a terminal, by their short names.
#pragma once

#include "platform/text/visible_text.h"

namespace vantrell::shell {

using text::boundedLines;
using text::cutTo;
using text::onOneLine;
using text::sanitized;

}  // namespace vantrell::shell
