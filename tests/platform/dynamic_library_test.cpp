#include "platform/http/dynamic_library.h"

#include <gmock/gmock.h>
#include <math.h>

namespace vantrell::tests {
namespace {

using testing::HasSubstr;

struct Mathematics : DynamicLibrary {
  using DynamicLibrary::DynamicLibrary;
  VANTRELL_FUNCTION(j0)  // a Bessel function; most others have overloads
};

struct TooNewMathematics : Mathematics {
  using Mathematics::Mathematics;
  void* first = find<void*>("vantrell_no_such_function");
  void* second = find<void*>("vantrell_nor_this_one");
};

TEST(DynamicLibrary, FindsTheFunctionsThatItsMembersName) {
  const Mathematics library("libm.so.6");
  ASSERT_TRUE(library.isComplete()) << library.problem();
  EXPECT_EQ(library.j0(0), 1);
}

TEST(DynamicLibrary, NamesTheLibraryThatIsNotThere) {
  const Mathematics library("libvantrell-none.so.6");
  EXPECT_FALSE(library.isComplete());
  EXPECT_THAT(library.problem(), HasSubstr("libvantrell-none.so.6"));
  EXPECT_EQ(library.j0, nullptr);
}

TEST(DynamicLibrary, NamesTheFirstFunctionThatIsMissing) {
  const TooNewMathematics library("libm.so.6");
  EXPECT_FALSE(library.isComplete());
  EXPECT_THAT(library.problem(), HasSubstr("vantrell_no_such_function"));
}

}  // namespace
}  // namespace vantrell::tests
