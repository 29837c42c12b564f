// Words of the program itself, outside a run: answers on standard output, what goes wrong on
// standard error. Neither minds a reader that has gone. Any thread.
#pragma once

#include <string>
#include <string_view>

namespace vantrell::shell {

/// Text in which commands stand as "vantrell run ...", with the word that the user types in place
/// of "vantrell": a checkout is started by ./run, which says so in $VANTRELL_COMMAND. tell() and
/// complain() do this by themselves.
std::string asTyped(std::string_view text);

void tell(std::string_view text);
/// "vantrell: " and the text, as a line.
void complain(std::string_view text);

}  // namespace vantrell::shell
