#include "platform/archive/xml.h"

#include <algorithm>
#include <expat.h>
#include <fmt/format.h>
#include <limits>

#include "platform/http/dynamic_library.h"

namespace vantrell {

namespace {

struct Library : DynamicLibrary {
  Library() : DynamicLibrary("libexpat.so.1") {}
  // clang-format off
  VANTRELL_FUNCTION(XML_ParserCreate) VANTRELL_FUNCTION(XML_ParserFree)
  VANTRELL_FUNCTION(XML_SetUserData) VANTRELL_FUNCTION(XML_SetElementHandler)
  VANTRELL_FUNCTION(XML_SetCharacterDataHandler)
  VANTRELL_FUNCTION(XML_SetStartDoctypeDeclHandler) VANTRELL_FUNCTION(XML_Parse)
  VANTRELL_FUNCTION(XML_StopParser) VANTRELL_FUNCTION(XML_GetErrorCode)
  VANTRELL_FUNCTION(XML_ErrorString) VANTRELL_FUNCTION(XML_GetCurrentLineNumber)
  // clang-format on
};

std::string localName(std::string_view name) {
  const auto colon = name.rfind(':');
  return std::string(colon == name.npos ? name : name.substr(colon + 1));
}

struct Reader {
  const Library& library;
  XML_Parser parser;
  std::vector<XmlElement> open;  // from the root on
  XmlElement root;
  std::string refusal;

  void refuse(std::string why) {
    refusal = std::move(why);
    library.XML_StopParser(parser, XML_FALSE);
  }
  static void onStart(void* self, const char* name, const char** attributes) {
    auto& reader = *static_cast<Reader*>(self);
    if (reader.open.size() == static_cast<std::size_t>(xml::deepest)) {
      return reader.refuse("has too many levels of elements");
    }
    XmlElement element{.name = localName(name)};
    for (; *attributes; attributes += 2) {
      element.attributes.emplace(localName(attributes[0]), attributes[1]);
    }
    reader.open.push_back(std::move(element));
  }
  static void onEnd(void* self, const char*) {
    auto& reader = *static_cast<Reader*>(self);
    XmlElement element = std::move(reader.open.back());
    reader.open.pop_back();
    if (reader.open.empty()) {
      reader.root = std::move(element);
    } else {
      reader.open.back().children.push_back(std::move(element));
    }
  }
  static void onText(void* self, const char* text, int length) {
    static_cast<Reader*>(self)->open.back().text.append(text, static_cast<std::size_t>(length));
  }
  static void onDoctype(void* self, const char*, const char*, const char*, int) {
    static_cast<Reader*>(self)->refuse("declares a document type, which is not allowed");
  }
};

}  // namespace

const XmlElement* XmlElement::child(std::string_view wanted) const {
  const auto found = std::ranges::find(children, wanted, &XmlElement::name);
  return found == children.end() ? nullptr : &*found;
}

std::string XmlElement::attribute(const std::string& wanted) const {
  const auto found = attributes.find(wanted);
  return found == attributes.end() ? "" : found->second;
}

std::expected<XmlElement, std::string> xml::parse(std::string_view document) {
  static const Library library;
  if (!library.isComplete()) {
    return std::unexpected(
        fmt::format("Reading XML needs the library libexpat: {}.", library.problem()));
  }
  if (document.size() > std::numeric_limits<int>::max()) {
    return std::unexpected("The document is too long.");
  }
  Reader reader{.library = library, .parser = library.XML_ParserCreate(nullptr)};
  if (!reader.parser) return std::unexpected("There is no memory to read the document.");
  library.XML_SetUserData(reader.parser, &reader);
  library.XML_SetElementHandler(reader.parser, Reader::onStart, Reader::onEnd);
  library.XML_SetCharacterDataHandler(reader.parser, Reader::onText);
  library.XML_SetStartDoctypeDeclHandler(reader.parser, Reader::onDoctype);
  const bool isRead = library.XML_Parse(reader.parser, document.data(),
                                        static_cast<int>(document.size()), 1) == XML_STATUS_OK;
  std::string problem;
  if (!isRead) {
    problem = fmt::format(
        "line {} {}", library.XML_GetCurrentLineNumber(reader.parser),
        !reader.refusal.empty()
            ? reader.refusal
            : fmt::format("cannot be read ({})",
                          library.XML_ErrorString(library.XML_GetErrorCode(reader.parser))));
  }
  library.XML_ParserFree(reader.parser);
  if (!isRead) return std::unexpected(std::move(problem));
  return std::move(reader.root);
}

}  // namespace vantrell
