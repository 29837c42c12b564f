#include "project/task_safety_error.h"

#include <fmt/format.h>
#include <system_error>

#include "platform/text/text.h"

namespace vantrell {

TaskSafetyError TaskSafetyError::filesFailed(std::string_view what, std::string_view path,
                                             int code) {
  return filesFailed(fmt::format("Could not {} {}: {}", what, text::repaired(path),
                                 std::generic_category().message(code)));
}

}  // namespace vantrell
