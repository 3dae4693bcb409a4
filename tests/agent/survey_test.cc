// Looking at a machine: files, mounts, and the operator that is asked to.

#include "agent/survey.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "agent/access.h"
#include "agent/connect.h"
#include "agent/local_transport.h"
#include "agent/operator_registry.h"
#include "agent/survey_files.h"
#include "agent/survey_operator.h"
#include "framework/errors.h"
#include "support/temp_tree.h"

namespace {

using namespace std::chrono_literals;

class FilesTest : public testing::Test {
 protected:
  void write(const std::string& name, size_t bytes) {
    std::filesystem::create_directories(std::filesystem::path(tree_.path(name)).parent_path());
    std::ofstream(tree_.path(name)) << std::string(bytes, 'x');
  }
  agent::FileFindings look(const std::map<std::string, bool>& mounts,
                           const std::vector<std::string>& excludes = {}) {
    return agent::lookAtFiles(root_, mounts, excludes, 20s, nullptr);
  }

  test_support::TempTree tree_;
  std::string root_ = std::filesystem::path(tree_.path("x")).parent_path();
};

TEST_F(FilesTest, InodesCountOnceEach) {
  write("etc/a", 10000);
  write("srv/b", 10000);
  std::filesystem::create_hard_link(tree_.path("srv/b"), tree_.path("srv/c"));
  const auto found = look({{root_, true}});
  EXPECT_TRUE(found.complete);
  // The root, two directories, two files.
  EXPECT_EQ(found.perMount.at(root_).files, 5);
  EXPECT_GE(found.perMount.at(root_).bytes, 20000);
  EXPECT_LT(found.perMount.at(root_).bytes, 100000);
}

TEST_F(FilesTest, ExclusionsAndOtherMountsAreNotEntered) {
  write("srv/cache/a", 1);
  write("srv/b", 1);
  write("mnt/nas/c", 1);
  write("mnt/disk/d", 1);
  const auto found =
      look({{root_, true}, {tree_.path("mnt/nas"), false}, {tree_.path("mnt/disk"), true}},
           {tree_.path("srv/cache") + "/*"});
  EXPECT_EQ(found.perMount.at(root_).files, 5);  // root, srv, cache, b, mnt
  EXPECT_EQ(found.perMount.at(tree_.path("mnt/disk")).files, 2);
  EXPECT_EQ(found.perMount.count(tree_.path("mnt/nas")), 0U);
}

TEST_F(FilesTest, TheLargestOwnerIsFound) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to give files away";
  write("home/far", 1);
  ASSERT_EQ(chown(tree_.path("home/far").c_str(), 70000, 80000), 0);
  const auto found = look({{root_, true}});
  EXPECT_EQ(found.largestUid, 70000U);
  EXPECT_EQ(found.largestUidPath, tree_.path("home/far"));
  EXPECT_EQ(found.largestGid, 80000U);
}

TEST_F(FilesTest, TimeThatRunsOutIsTold) {
  for (int i = 0; i < 200; ++i) write("srv/" + std::to_string(i), 0);
  EXPECT_FALSE(agent::lookAtFiles(root_, {{root_, true}}, {}, 0s, nullptr).complete);
}

TEST_F(FilesTest, AFifoIsNotWaitedFor) {
  ASSERT_EQ(mkfifo(tree_.path("fifo").c_str(), 0600), 0);
  EXPECT_EQ(look({{root_, true}}).perMount.at(root_).files, 2);
}

TEST(Mounts, EscapesCommentsAndSlashesAreResolved) {
  const auto mounts = agent::parseMounts(
      "# comment\n\n/dev/sda1 / ext4 rw,noatime 0 1\nnas:/d /mnt/a\\040b/ nfs4 rw 0 0\nshort\n");
  ASSERT_EQ(mounts.size(), 2U);
  EXPECT_EQ(mounts[0].options, "rw,noatime");
  EXPECT_EQ(mounts[1].mountPoint, "/mnt/a b");
  EXPECT_TRUE(agent::isRemoteType(mounts[1].type));
  EXPECT_FALSE(agent::isRemoteType(mounts[0].type));
}

class SurveyOperatorTest : public testing::Test {
 protected:
  SurveyOperatorTest() { agent::registerSurveyOperator(); }
  ~SurveyOperatorTest() override {
    agent::OperatorRegistry::instance().remove(agent::surveyOperator);
  }
  agent::LocalTransport transport_;
};

TEST_F(SurveyOperatorTest, TellsWhatItSeesOfThisMachine) {
  agent::SurveyClient client(transport_, nullptr, nullptr);
  agent::SurveyRequest request;
  request.patience = 0;
  const agent::Survey survey = client.survey(request);
  bool root = false;
  for (const auto& mount : survey.fileSystems)
    root = root || (mount.mountPoint == "/" && mount.copied);
  EXPECT_TRUE(root);
  EXPECT_GT(survey.largestUid, 0);
}

TEST_F(SurveyOperatorTest, MeasuringWithoutAPluginSaysSo) {
  agent::SurveyClient client(transport_, nullptr, nullptr);
  try {
    client.measure({});
    FAIL();
  } catch (const std::exception& problem) {
    EXPECT_STREQ(problem.what(), "no plug-in offers the hardware calculator");
  }
}

TEST_F(SurveyOperatorTest, SettingsThatMakeNoSenseAreRefused) {
  agent::SurveyClient client(transport_, nullptr, nullptr);
  agent::MeasureSettings settings;
  settings.duration = -1;
  EXPECT_THROW(client.measure(settings), std::runtime_error);
  settings = {};
  settings.procScale = 0;
  EXPECT_THROW(client.measure(settings), std::runtime_error);
}

TEST_F(SurveyOperatorTest, ACallerWithoutTheRightIsRefused) {
  boost::intrusive_ptr<QXL::QXLMessageIterator> in(new agent::Message());
  boost::intrusive_ptr<agent::Message> out(new agent::Message());
  agent::CurrentRequest request;
  request.client.uid = 65534;
  request.client.account = "nobody";
  const agent::CurrentRequestScope scope(
      request, boost::intrusive_ptr<QXL::QXLRequestContextPrototype>(new agent::RequestContext()));
  agent::OperatorRegistry::instance()
      .find(agent::surveyOperator)
      ->newOperator()
      ->process(agent::methodSurvey, in, out);
  ASSERT_TRUE(out->firstError());
  EXPECT_EQ(out->firstError()->first, 414);
}

TEST(KeptConnection, IsTheOneThatOthersGetWhileItLives) {
  const QXL::QXLConnectionInfo local{"local", {}};
  QXL::QXLRequestTransport* first = nullptr;
  {
    const agent::KeptConnection kept(local, nullptr);
    first = &kept.transport();
    EXPECT_EQ(agent::connect(local, nullptr).get(), first);
    EXPECT_NE(agent::connect({"local", {"Port=1"}}, nullptr).get(), first);
  }
  const auto later = agent::connect(local, nullptr);
  EXPECT_NE(agent::connect(local, nullptr).get(), later.get());
}

}  // namespace
