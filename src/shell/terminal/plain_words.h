// Words of the program itself, outside a run: answers on standard output, what goes wrong on
// standard error. Neither minds a reader that has gone. Any thread.
#pragma once

#include <string_view>

namespace vantrell::shell {

void tell(std::string_view text);
/// "vantrell: " and the text, as a line.
void complain(std::string_view text);

}  // namespace vantrell::shell
