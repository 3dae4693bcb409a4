#include "expand/args_list.h"

#include <gtest/gtest.h>

#include <memory>

using Expand::ArgsList;

namespace {

std::list<std::string> wordsOf(const ArgsList& args) {
  std::list<std::string> words;
  for (char* const* word = args.get(); *word != nullptr; ++word) words.push_back(*word);
  return words;
}

}  // namespace

TEST(ArgsList, ArrayEndsWithNull) {
  const ArgsList args({"ls", "-l", "", "a b"});
  EXPECT_STREQ(args.get()[0], "ls");
  EXPECT_STREQ(args.get()[1], "-l");
  EXPECT_STREQ(args.get()[2], "");
  EXPECT_STREQ(args.get()[3], "a b");
  EXPECT_EQ(args.get()[4], nullptr);
}

TEST(ArgsList, EmptyListIsOnlyTheNull) {
  const ArgsList args((std::list<std::string>()));
  EXPECT_EQ(args.get()[0], nullptr);
}

TEST(ArgsList, OwnsItsStrings) {
  auto list = std::make_unique<std::list<std::string>>(3, std::string(100, 'x'));
  const ArgsList args(*list);
  list.reset();
  EXPECT_EQ(wordsOf(args), std::list<std::string>(3, std::string(100, 'x')));
}

TEST(ArgsList, CopyOutlivesTheOriginal) {
  // Short strings, which lie inside their objects, and long ones, which do not.
  auto original = std::make_unique<ArgsList>(std::list<std::string>{"s", std::string(99, 'l')});
  const ArgsList copy(*original);
  original.reset();
  EXPECT_EQ(wordsOf(copy), (std::list<std::string>{"s", std::string(99, 'l')}));
}

TEST(ArgsList, AssignmentReplacesTheWords) {
  auto original = std::make_unique<ArgsList>(std::list<std::string>{"s", std::string(99, 'l')});
  ArgsList target({"a", "b", "c"});
  target = *original;
  original.reset();
  EXPECT_EQ(wordsOf(target), (std::list<std::string>{"s", std::string(99, 'l')}));
}

TEST(ArgsList, AssignmentToItselfChangesNothing) {
  ArgsList args({"a", "b"});
  const ArgsList& same = args;
  args = same;
  EXPECT_EQ(wordsOf(args), (std::list<std::string>{"a", "b"}));
}
