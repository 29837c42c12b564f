#include "records/values/application.h"

namespace vantrell {

constinit const std::string_view applicationVersion = VANTRELL_VERSION;

}  // namespace vantrell
