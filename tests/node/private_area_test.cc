#include "node/private_area.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <cstdlib>
#include <ctime>

#include "host/error.h"
#include "host/file.h"
#include "node/template.h"
#include "node_test/system_tree.h"
#include "support/scratch_host.h"

namespace {

using node::Error;
using node::ExitCode;
using test_support::ScratchHost;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr char kElsewhere[] = "/vz/private/101";

ExitCode codeOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const Error& error) {
    return error.code();
  }
  return ExitCode::kOk;
}

mode_t modeOf(const std::string& path) {
  struct stat st {};
  EXPECT_EQ(stat(path.c_str(), &st), 0) << path;
  EXPECT_EQ(st.st_uid, 0u);
  EXPECT_EQ(st.st_gid, 0u);
  return st.st_mode & 07777;
}

node::Container container() {
  node::Container made;
  made.id = 101;
  made.privateArea = kElsewhere;
  return made;
}

TEST(MakePrivateArea, HasFixedModesWhateverTheUmask) {
  ScratchHost().run([] {
    umask(077);
    node::makePrivateArea(kElsewhere);
    EXPECT_EQ(modeOf(kElsewhere), 0700u);
    EXPECT_EQ(modeOf(std::string(kElsewhere) + "/fs"), 0755u);
  });
}

TEST(MakePrivateArea, CompletesWhatAnInterruptedRunLeft) {
  for (const char* left : {"/vz/private/101", "/vz/private/101/fs"}) {
    ScratchHost().dir(left, 0711).run([] {
      node::makePrivateArea(kElsewhere);
      EXPECT_EQ(modeOf(kElsewhere), 0700u);
      EXPECT_EQ(modeOf(std::string(kElsewhere) + "/fs"), 0755u);
    });
  }
}

TEST(MakePrivateArea, RefusesWhatHoldsAnythingOrIsAFile) {
  for (const char* file : {"/vz/private/101/fs/etc/passwd", "/vz/private/101/other",
                           "/vz/private/101/fs", "/vz/private/101"}) {
    ScratchHost().file(file, "kept").run([file] {
      EXPECT_EQ(codeOf([] { node::makePrivateArea(kElsewhere); }), ExitCode::kExists);
      EXPECT_EQ(test_support::readFile(file), "kept");
    });
  }
}

TEST(OsTemplate, IsFoundAsDirectoryOrArchiveWithoutItsLeadingDot) {
  ScratchHost()
      .dir("/var/lib/qx/template/debian-12")
      .file("/var/lib/qx/template/debian-12.tar", "")
      .file("/var/lib/qx/template/suse.tar.xz", "")
      .run([] {
        EXPECT_EQ(node::findTemplate("debian-12").path, "/var/lib/qx/template/debian-12");
        EXPECT_FALSE(node::findTemplate(".debian-12").archive);
        EXPECT_EQ(node::findTemplate(".suse").path, "/var/lib/qx/template/suse.tar.xz");
        EXPECT_TRUE(node::findTemplate("suse").archive);
        EXPECT_EQ(codeOf([] { node::findTemplate("none"); }), ExitCode::kNotFound);
        for (const char* name : {"", ".", "..", "../x", "a/b", "a b", "...x", "a'b"}) {
          EXPECT_EQ(codeOf([name] { node::findTemplate(name); }), ExitCode::kBadConfig) << name;
        }
      });
}

TEST(PrivateAreaFromTemplate, CopiesADirectoryWithModesAndLinks) {
  ScratchHost()
      .file("/var/lib/qx/template/base/usr/bin/tool", "text", 04755)
      .symlink("/var/lib/qx/template/base/bin", "usr/bin")
      .run([] {
        node::makePrivateAreaFromTemplate(container(), ".base");
        EXPECT_EQ(modeOf(std::string(kElsewhere) + "/fs/usr/bin/tool"), 04755u);
        EXPECT_EQ(test_support::readFile(std::string(kElsewhere) + "/fs/bin/tool"), "text");
        EXPECT_EQ(test_support::readFile(std::string(kElsewhere) + "/.ostemplate"), ".base");
        EXPECT_EQ(modeOf(kElsewhere), 0700u);
        EXPECT_THAT(node::listDirectory("/vz/private"), ElementsAre("101"));
      });
}

TEST(PrivateAreaFromTemplate, UnpacksArchives) {
  for (const char* command : {"tar -C /in -cf /var/lib/qx/template/base.tar .",
                              "tar -C /in -czf /var/lib/qx/template/base.tar.gz .",
                              "tar -C /in -cJf /var/lib/qx/template/base.tar.xz ."}) {
    ScratchHost().file("/in/etc/motd", "hello", 0640).dir("/var/lib/qx/template").run([command] {
      ASSERT_EQ(system(command), 0);
      node::makePrivateAreaFromTemplate(container(), "base");
      EXPECT_EQ(test_support::readFile(std::string(kElsewhere) + "/fs/etc/motd"), "hello");
      EXPECT_EQ(modeOf(std::string(kElsewhere) + "/fs/etc/motd"), 0640u);
    });
  }
}

TEST(PrivateAreaFromTemplate, BrokenArchiveLeavesNoPrivateArea) {
  ScratchHost().file("/var/lib/qx/template/base.tar", "this is no archive, only text").run([] {
    try {
      node::makePrivateAreaFromTemplate(container(), "base");
      FAIL() << "accepted";
    } catch (const Error& error) {
      EXPECT_EQ(error.code(), ExitCode::kFailed);
      EXPECT_THAT(error.what(), HasSubstr("tar --extract"));
    }
    EXPECT_TRUE(node::listDirectory("/vz/private").empty());
  });
}

TEST(PrivateAreaFromTemplate, ExistingPrivateAreaIsLeftAlone) {
  ScratchHost().dir("/var/lib/qx/template/base").dir(kElsewhere).run([] {
    EXPECT_EQ(codeOf([] { node::makePrivateAreaFromTemplate(container(), "base"); }),
              ExitCode::kExists);
    EXPECT_TRUE(node::listDirectory(kElsewhere).empty());
  });
}

TEST(PrivateAreaFromTemplate, LeftoverOfAKilledRunIsReplaced) {
  ScratchHost()
      .file("/var/lib/qx/template/base/new", "")
      .file("/vz/private/101.creating/fs/old", "")
      .run([] {
        node::makePrivateAreaFromTemplate(container(), "base");
        EXPECT_THAT(node::listDirectory(std::string(kElsewhere) + "/fs"), ElementsAre("new"));
        EXPECT_THAT(node::listDirectory("/vz/private"), ElementsAre("101"));
      });
}

TEST(RemovePrivateArea, RemovesAllThatBelongsThere) {
  ScratchHost()
      .file("/vz/private/101/fs/etc/x", "")
      .file("/vz/private/101/.ostemplate", "")
      .file("/vz/private/101/.qx-quota", "")
      .run([] {
        node::removePrivateArea(kElsewhere);
        EXPECT_FALSE(node::exists(kElsewhere));
      });
}

TEST(RemovePrivateArea, DirectoryThatIsNoPrivateAreaIsKeptWhole) {
  ScratchHost().file("/vz/private/101/fs/x", "").file("/vz/private/101/mail", "").run([] {
    EXPECT_EQ(codeOf([] { node::removePrivateArea(kElsewhere); }), ExitCode::kBadConfig);
    EXPECT_TRUE(node::exists("/vz/private/101/fs/x"));
  });
}

TEST(RemovePrivateArea, MountInsideIsRefusedAndItsFilesStay) {
  ScratchHost().dir("/vz/private/101/fs/mnt").file("/data/precious", "").run([] {
    ASSERT_EQ(mount("/data", "/vz/private/101/fs/mnt", nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(codeOf([] { node::removePrivateArea(kElsewhere); }), ExitCode::kBusy);
    EXPECT_TRUE(node::exists("/data/precious"));
  });
}

TEST(IsSystemTree, NeedsAnExecutableInitOrShellInside) {
  ScratchHost()
      .file("/a/bin/sh", "", 0755)
      .file("/b/lib/systemd/systemd", "", 0755)
      .symlink("/b/sbin/init", "/lib/systemd/systemd")
      .file("/c/bin/sh", "", 0644)
      .symlink("/d/bin/sh", "/bin/dash")
      .dir("/e/bin/sh")
      .run([] {
        EXPECT_TRUE(node::isSystemTree("/a"));
        EXPECT_TRUE(node::isSystemTree("/b"));
        EXPECT_FALSE(node::isSystemTree("/c"));
        EXPECT_FALSE(node::isSystemTree("/d")) << "the host's own /bin/dash was taken";
        EXPECT_FALSE(node::isSystemTree("/e"));
        EXPECT_FALSE(node::isSystemTree("/none"));
      });
}

TEST(RegisterContainer, WritesTimeAndSourceOnce) {
  ScratchHost()
      .file("/vz/private/101/fs/bin/sh", "", 0755)
      .file("/vz/private/101/.ostemplate", "it's odd")
      .run([] {
        EXPECT_FALSE(node::registration(container()));
        EXPECT_TRUE(node::registerContainer(container()));
        const std::string marker = test_support::readFile("/vz/private/101/.qx-registered");
        EXPECT_FALSE(node::registerContainer(container()));
        EXPECT_EQ(test_support::readFile("/vz/private/101/.qx-registered"), marker);
        const auto registered = node::registration(container());
        ASSERT_TRUE(registered);
        EXPECT_EQ(registered->source, "template it's odd");
        struct tm parts {};
        const char* end = strptime(registered->time.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts);
        ASSERT_NE(end, nullptr) << registered->time;
        EXPECT_STREQ(end, "");
        EXPECT_LE(std::abs(time(nullptr) - timegm(&parts)), 60);
      });
}

TEST(RegisterContainer, FilesWithoutTemplateAreTheirOwnSource) {
  ScratchHost().file("/vz/private/101/fs/sbin/init", "", 0755).run([] {
    EXPECT_TRUE(node::registerContainer(container()));
    EXPECT_EQ(node::registration(container())->source, "files");
  });
}

TEST(RegisterContainer, TreeWithoutASystemIsRefused) {
  ScratchHost().file("/vz/private/101/fs/etc/x", "").run([] {
    EXPECT_EQ(codeOf([] { node::registerContainer(container()); }), ExitCode::kNotFound);
    EXPECT_FALSE(node::registration(container()));
  });
}

}  // namespace
