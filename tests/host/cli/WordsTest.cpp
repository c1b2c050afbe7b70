#include "host/cli/commands/Words.h"

#include <gmock/gmock.h>

namespace nimbo::cli {
namespace {

using Words = std::vector<std::string>;

struct WordsCase {
  const char* text;
  Words words;
  const char* error;
};
class SplitText : public ::testing::TestWithParam<WordsCase> {};

TEST_P(SplitText, GivesTheWordsOrSaysWhatIsNotClosed) {
  auto words = SplitWords(GetParam().text);
  EXPECT_EQ(words ? *words : Words(), GetParam().words);
  EXPECT_EQ(words.Why(), GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, SplitText,
    ::testing::Values(WordsCase{" \t ", {}, ""}, WordsCase{"a  b\t", {"a", "b"}, ""},
                      WordsCase{R"("a \"b\" \\ \n" "")", {R"(a "b" \ \n)", ""}, ""},
                      WordsCase{"{a {b c} d} {}", {"a {b c} d", ""}, ""},
                      WordsCase{"x:u={a b}+y z", {"x:u={a b}+y", "z"}, ""},
                      WordsCase{"a {b {c} d", {}, "not closed: {b {c} d"},
                      WordsCase{"a \"b", {}, "not closed: \"b"}));

}  // namespace
}  // namespace nimbo::cli
