#include "migrate/private_area.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/temp_tree.h"

using namespace test_support;

TEST(TemplateMarker, IsTheNameWithoutANewline) {
  const TempTree tree({fileAt("area/.ostemplate", "an older and longer name")});
  P2V::writeTemplateMarker(tree.path("area"), "debian-12");
  EXPECT_EQ(readFile(tree.path("area/.ostemplate")), "debian-12");
  EXPECT_EQ(P2V::readTemplateMarker(tree.path("area")), "debian-12");
}

TEST(TemplateMarker, NewOneIsReadableByAll) {
  const TempTree tree({dirAt("area")});
  umask(022);
  P2V::writeTemplateMarker(tree.path("area"), "debian-12");
  struct stat info;
  ASSERT_EQ(stat(tree.path("area/.ostemplate").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777u, 0644u);
}

TEST(TemplateMarker, MissingOneIsEmpty) {
  const TempTree tree;
  EXPECT_EQ(P2V::readTemplateMarker(tree.root()), "");
  P2V::writeTemplateMarker(tree.path("missing"), "debian-12");
  EXPECT_EQ(P2V::readTemplateMarker(tree.path("missing")), "");
}

TEST(KeptArea, IsBesideTheArea) { EXPECT_EQ(P2V::keptArea("/vz/101"), "/vz/101.migrated"); }
