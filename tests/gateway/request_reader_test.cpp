#include "gateway/request_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace vantrell {
namespace {

using State = RequestReader::State;

struct Case {
  const char* what;
  std::string bytes;
  State state = State::complete;
  std::string method, path, body;
};

std::string withLength(const std::string& length, const std::string& body = {}) {
  return "POST / HTTP/1.1\r\nContent-Length:" + length + "\r\n\r\n" + body;
}

TEST(RequestReader, ReadsOrRefusesEachRequestHoweverItIsCut) {
  using namespace std::string_literals;
  const std::string half(RequestReader::longestMessage / 2, 'x');
  const std::vector<Case> cases{
      {"no body", "GET /v1/jobs?x=1 HTTP/1.1\r\nHost: a\r\n\r\n", State::complete, "GET",
       "/v1/jobs"},
      {"no header", "get  /a   HTTP/1.0\r\n\r\n", State::complete, "GET", "/a"},
      {"no line end", "GET / HTTP/1.1\r\nHost: a\r\n", State::incomplete},
      {"two words", "GET /\r\n\r\n", State::invalid},
      {"four words", "GET / / HTTP/1.1\r\n\r\n", State::invalid},
      {"another version", "GET / HTTP/2.0\r\n\r\n", State::invalid},
      {"an empty line first", "\r\nGET / HTTP/1.1\r\n\r\n", State::invalid},
      {"nothing in the head", "\r\n\r\n", State::invalid},
      {"a header without a colon", "GET / HTTP/1.1\r\nHost\r\n\r\n", State::invalid},
      {"a header without a name", "GET / HTTP/1.1\r\n:a\r\n\r\n", State::invalid},
      {"a header without a value", "GET / HTTP/1.1\r\nHost:\r\n\r\n", State::invalid},
      {"invalid UTF-8", "GET / HTTP/1.1\r\nA: \xff\r\n\r\n", State::invalid},
      {"a bare LF in the first line", "GET / HTTP/1.1\nHost: a\r\n\r\n", State::invalid},
      {"a bare LF in a header", "GET / HTTP/1.1\r\nA: b\nC: d\r\n\r\n", State::complete, "GET",
       "/"},
      {"bare LFs only", "GET / HTTP/1.1\nHost: a\n\n", State::incomplete},
      {"a NUL in a header", "GET / HTTP/1.1\r\nA: b\0c\r\n\r\n"s, State::complete, "GET", "/"},
      {"a body", withLength(" 3 ", "abc"), State::complete, "POST", "/", "abc"},
      {"bytes after the body", withLength("+2", "abGET / HTTP/1.1"), State::complete, "POST", "/",
       "ab"},
      {"half a body", withLength("3", "ab"), State::incomplete},
      {"half a body after an invalid line", withLength("3\r\nHost", "ab"), State::incomplete},
      {"all of it", withLength("3\r\nHost", "abc"), State::invalid},
      {"minus zero", withLength("-0"), State::complete, "POST", "/"},
      {"the longest body", withLength("1048576", std::string(1'048'576, 'b')), State::complete,
       "POST", "/", std::string(1'048'576, 'b')},
      {"a longer one", withLength("1048577"), State::invalid},
      {"a negative one", withLength("-1"), State::invalid},
      {"signs", withLength("+-1"), State::invalid},
      {"no number", withLength("3x"), State::invalid},
      {"blanks for a number", withLength("  "), State::invalid},
      {"more than 64 bits", withLength("99999999999999999999"), State::invalid},
      {"two lengths", withLength("9\r\ncontent-length: 2", "ab"), State::complete, "POST", "/",
       "ab"},
      {"an invalid length before a valid one", withLength("x\r\nContent-Length: 2", "ab"),
       State::invalid},
      {"a flood of headers", "GET / HTTP/1.1\r\nA: " + half + "\r\nB: " + half, State::tooLarge},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.what);
    for (const std::size_t piece : {std::size_t{1}, std::size_t{7}, std::size_t{65'536}}) {
      RequestReader reader;
      auto state = State::incomplete;
      const std::string_view bytes = one.bytes;
      for (std::size_t at = 0; at < bytes.size() && state == State::incomplete; at += piece) {
        state = reader.append(bytes.substr(at, piece));
      }
      ASSERT_EQ(state, one.state);
      if (state != State::complete) continue;
      const auto request = reader.take();
      EXPECT_EQ(request.method, one.method);
      EXPECT_EQ(request.path, one.path);
      EXPECT_TRUE(request.body == one.body);
    }
  }
}

TEST(RequestReader, NamesOfHeadersAreLowerCasedAndTheLastOfTwoCounts) {
  RequestReader reader;
  ASSERT_EQ(reader.append("GET / HTTP/1.1\r\nX-API-key:\t a b \t\r\nx-Api-Key: c:d\r\n\r\n"),
            State::complete);
  const auto request = reader.take();
  EXPECT_EQ(request.headers.find("x-api-key"), "c:d");
  EXPECT_EQ(request.headers.all().front(), GatewayHeaders::Header("x-api-key", "a b"));
}

}  // namespace
}  // namespace vantrell
