// One step of the plan that a runtime has reported. A plan is always replaced whole and never
// stored.
#pragma once

#include <string>

namespace vantrell {

struct PlanEntry {
  std::string id;
  std::string content;
  std::string status;
  std::string priority;

  bool operator==(const PlanEntry&) const = default;
};

}  // namespace vantrell
