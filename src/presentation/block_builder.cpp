#include "presentation/block_builder.h"

#include <algorithm>

#include "presentation/white_space.h"

namespace vantrell {

namespace {

using Kind = LineReading::Kind;

/// Ids are fetched by so many at a time: each call of the system's generator has its price.
constexpr std::size_t idsAtATime = 16;

/// The last character of the text of a range that is not white space, or what was `otherwise`.
std::size_t endOfInk(std::string_view text, std::size_t from, std::size_t otherwise) {
  const std::size_t end = white::trimEnd(text, from, text.size(), white::at);
  return end > from ? end : otherwise;
}

}  // namespace

ResponseBlock& BlockList::add(ResponseBlock::Kind kind) {
  const std::size_t place = blocks.size();
  if (place >= ids_.size()) {
    ids_.resize(std::max(place + idsAtATime, place + place / 2));
    Uuid::random(std::span(ids_).subspan(place));
  }
  return blocks.emplace_back(ids_[place], std::move(kind));
}

void BlockList::truncate(std::size_t count) {
  blocks.erase(blocks.begin() + static_cast<std::ptrdiff_t>(count), blocks.end());
}

void BlockList::takeIDs(const std::vector<ResponseBlock>& earlier) {
  const auto same = [](const ResponseBlock& one, const ResponseBlock& other) {
    return one.looksLike(other);
  };
  const std::size_t shorter = std::min(blocks.size(), earlier.size());
  const auto differs = std::ranges::mismatch(blocks, earlier, same).in1 - blocks.begin();
  const auto alike = std::min(static_cast<std::size_t>(differs), shorter);
  std::size_t behind = 0;
  while (behind < shorter - alike &&
         same(blocks[blocks.size() - 1 - behind], earlier[earlier.size() - 1 - behind])) {
    ++behind;
  }
  for (std::size_t i = 0; i < shorter - behind; ++i) {
    if (i < alike || same(blocks[i], earlier[i])) blocks[i].id = earlier[i].id;
  }
  for (std::size_t i = 1; i <= behind; ++i) {
    blocks[blocks.size() - i].id = earlier[earlier.size() - i].id;
  }
  ids_.clear();
  for (const auto& block : blocks) ids_.push_back(block.id);
}

BlockBuilder::BlockBuilder(BlockList& list) : list_(list) {
  state_.blocks = list.blocks.size();
}

void BlockBuilder::append(std::string_view text) {
  if (text_.empty()) text.remove_prefix(white::skip(text, 0, white::at));
  if (text.empty()) return;
  const std::size_t from = text_.size();
  text_ += text;
  const std::size_t end = endOfInk(text_, from, end_);
  if (end == end_) return;
  end_ = end;
  update();
}

void BlockBuilder::take(std::string text) {
  if (white::at(text, 0) != 0) return append(text);
  text_ = std::move(text);
  end_ = endOfInk(text_, 0, 0);
  if (end_ != 0) update();
}

void BlockBuilder::rewind(const Mark& mark) {
  text_.resize(mark.size);
  end_ = mark.end;
  searched_ = std::min(searched_, mark.end);
  line_ = mark.line;
  separator_ = mark.separator;
  showLastLine();
}

std::size_t BlockBuilder::settledCount() const {
  const State& state = header_ ? header_->before : shown_ ? shown_->before : state_;
  return state.blocks - (state.open != Open::none);
}

BlockBuilder::State BlockBuilder::save() const {
  State state = state_;
  state.blocks = list_.blocks.size();
  if (state.open != Open::none) {
    const ResponseBlock& block = list_.blocks.back();
    state.textSize = block.text.size();
    if (state.open == Open::table) state.rows = std::get<ResponseTable>(block.kind).rows.size();
  }
  return state;
}

void BlockBuilder::restore(const State& state) {
  std::string cut = std::move(state_.cut);
  state_ = state;
  list_.truncate(state.blocks);
  if (state.open == Open::none) return;
  ResponseBlock& block = list_.blocks.back();
  if (block.text.size() < state.textSize) block.text += cut;
  block.text.resize(state.textSize);
  if (state.open == Open::table) std::get<ResponseTable>(block.kind).rows.resize(state.rows);
}

void BlockBuilder::update() {
  std::size_t lineEnd = text_.find('\n', searched_);
  if (lineEnd < end_) {
    takeBackLastLine();
    while (lineEnd < end_) {
      finishLine(lineEnd);
      line_ = LineReader(lineEnd + 1);
      separator_ = SeparatorReader(lineEnd + 1);
      lineEnd = text_.find('\n', lineEnd + 1);
    }
  }
  searched_ = end_;
  showLastLine();
}

void BlockBuilder::finishLine(std::size_t end) {
  line_.read(text_, end);
  if (header_) {
    separator_.read(text_, end);
    if (separator_.isSeparator(header_->cells)) {
      startTable();
      header_.reset();
      return;
    }
    header_.reset();
  }
  const LineReading reading = readLine(state_);
  const bool mayBeHeader = reading.kind > Kind::blank;
  const std::size_t cells = mayBeHeader ? line_.cells() : 0;
  if (cells != 0) header_ = Header{line_.begin(), end, cells, save(), reading};
  apply(reading, end);
}

void BlockBuilder::showLastLine() {
  line_.read(text_, end_);
  if (header_) separator_.read(text_, end_);
  const bool startsTable = header_ && separator_.isSeparator(header_->cells);
  if (shown_ && shown_->startsTable && startsTable) return;
  if (shown_ && !shown_->startsTable && !startsTable) {
    const LineReading reading = readLine(shown_->before);
    std::string* text = reading.isGrown(shown_->reading) ? textOf(reading) : nullptr;
    if (text) {
      const std::size_t earlier = shown_->reading.end;
      if (reading.end < earlier) text->resize(text->size() - (earlier - reading.end));
      if (reading.end > earlier) text->append(text_, earlier, reading.end - earlier);
      shown_->reading = reading;
      return;
    }
  }
  takeBackLastLine();
  if (header_ && separator_.isHopeless()) header_.reset();
  shown_ = Shown{save(), {}, startsTable};
  if (startsTable) {
    startTable();
  } else {
    shown_->reading = readLine(state_);
    apply(shown_->reading, end_);
  }
}

void BlockBuilder::takeBackLastLine() {
  if (!shown_) return;
  if (shown_->startsTable) {
    restore(header_->before);
    apply(header_->reading, header_->end);
  } else {
    restore(shown_->before);
  }
  shown_.reset();
}

LineReading BlockBuilder::readLine(const State& state) {
  if (state.open == Open::code) {
    if (line_.isFence(text_)) return {.kind = Kind::fenceEnd};
    return {.kind = Kind::codeLine, .begin = line_.begin(), .end = end_};
  }
  if (state.open == Open::table && line_.cells() == state.cells) return line_.rowReading(text_);
  return line_.reading(text_, state.open != Open::paragraph);
}

void BlockBuilder::apply(const LineReading& reading, std::size_t lineEnd) {
  if (reading.kind == Kind::codeLine) {
    std::string& code = list_.blocks.back().text;
    if (state_.hasCodeLines) code += '\n';
    code.append(text_, reading.begin, lineEnd - reading.begin);
    state_.hasCodeLines = true;
    return;
  }
  if (reading.kind == Kind::row) {
    auto& table = std::get<ResponseTable>(list_.blocks.back().kind);
    table.rows.push_back(splitCells(contentOf(line_.begin(), lineEnd)));
    return;
  }
  if (reading.kind == Kind::paragraph) {
    if (state_.open == Open::paragraph) {
      list_.blocks.back().text += ' ';
      list_.blocks.back().text += slice(reading);
      return;
    }
    state_.open = Open::none;
    if (reading.begin == reading.end) return;  // line breaks other than ours
    addText(ResponseBlock::Paragraph{}, reading);
    state_.open = Open::paragraph;
    return;
  }
  closeParagraph();
  state_.open = Open::none;
  switch (reading.kind) {
    case Kind::fenceStart: {
      ResponseBlock::Code code;
      if (reading.begin < reading.end) code.language = slice(reading);
      list_.add(std::move(code));
      state_.open = Open::code;
      state_.hasCodeLines = false;
      break;
    }
    case Kind::heading: addText(ResponseBlock::Heading{reading.level}, reading); break;
    case Kind::divider: list_.add(ResponseBlock::Divider{}); break;
    case Kind::bullet: addText(ResponseBlock::Bullet{reading.level}, reading); break;
    case Kind::checklist:
      addText(ResponseBlock::Checklist{reading.checked, reading.level}, reading);
      break;
    case Kind::numbered:
      addText(ResponseBlock::Numbered{reading.number, reading.level}, reading);
      break;
    case Kind::quote: addText(ResponseBlock::Quote{}, reading); break;
    default: break;  // a blank line and the end of a fence add nothing
  }
}

void BlockBuilder::addText(ResponseBlock::Kind kind, const LineReading& reading) {
  list_.add(std::move(kind)).text = slice(reading);
}

void BlockBuilder::startTable() {
  const Header header = *header_;
  restore(header.before);
  closeParagraph();
  ResponseTable table;
  table.headers = splitCells(contentOf(header.begin, header.end));
  list_.add(std::move(table));
  state_.open = Open::table;
  state_.cells = header.cells;
}

void BlockBuilder::closeParagraph() {
  if (state_.open != Open::paragraph) return;
  state_.open = Open::none;
  std::string& text = list_.blocks.back().text;
  const std::size_t end = white::trimEnd(text, 0, text.size(), white::at);
  state_.cut = text.substr(end);
  text.resize(end);
}

std::string_view BlockBuilder::slice(const LineReading& reading) const {
  return std::string_view(text_).substr(reading.begin, reading.end - reading.begin);
}

/// The text that ends with what this kind of line has to say; absent where it has nothing to grow.
std::string* BlockBuilder::textOf(const LineReading& reading) {
  if (reading.begin == reading.end) return nullptr;
  ResponseBlock& block = list_.blocks.back();
  switch (reading.kind) {
    case Kind::row: return &std::get<ResponseTable>(block.kind).rows.back().back();
    case Kind::fenceStart: {
      auto& language = std::get<ResponseBlock::Code>(block.kind).language;
      return language ? &*language : nullptr;
    }
    case Kind::fenceEnd:
    case Kind::blank:
    case Kind::divider: return nullptr;
    default: return &block.text;
  }
}

std::string_view BlockBuilder::contentOf(std::size_t begin, std::size_t end) const {
  return white::trimmedOfBlanks(std::string_view(text_).substr(begin, end - begin));
}

}  // namespace vantrell
