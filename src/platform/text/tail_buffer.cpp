#include "platform/text/tail_buffer.h"

#include "platform/text/utf8.h"

namespace vantrell {

std::string TailBuffer::contents() const {
  std::size_t cut = kept_.size() - size();
  if (wasTruncated()) cut = utf8::endOfContinuation(kept_, cut);
  return kept_.substr(cut);
}

}  // namespace vantrell
