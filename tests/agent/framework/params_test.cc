// The parameters record on its way through a message.

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "agent/wire/message.h"
#include "framework/env_manager.h"
#include "framework/errors.h"
#include "framework/migrate_params.h"

namespace {

using QXA::QXAMigrateP2VSerializerParams;

TEST(Params, EveryFieldComesBack) {
  QXAMigrateP2VSerializerParams record;
  record.ctid = 4711;
  record.options.excludes = {"/proc/*", "/\xff"};
  record.options.config.reset(new QXA::QXAEnvConfig());
  record.options.config->setHostname("web");
  record.options.keepOnFailure = true;
  record.options.callerFlag = true;
  record.options.services = {{"nginx"}, {"cron"}};
  record.options.callerText = std::string("any\0bytes", 9);
  boost::intrusive_ptr<agent::Message> message(new agent::Message());
  ASSERT_EQ(message->putObj(record, 0), 0);

  QXAMigrateP2VSerializerParams again;
  ASSERT_EQ(message->getObj(again, 0), 0) << QXL::getErrorMessage();
  EXPECT_EQ(again.ctid, 4711);
  EXPECT_EQ(again.options.excludes, (std::vector<std::string>{"/proc/*", "/\xff"}));
  std::optional<std::string> hostname;
  again.options.config->getHostname(hostname);
  EXPECT_EQ(hostname, "web");
  EXPECT_TRUE(again.options.keepOnFailure);
  EXPECT_TRUE(again.options.callerFlag);
  ASSERT_EQ(again.options.services.size(), 2u);
  EXPECT_EQ(again.options.services[1].name, "cron");
  EXPECT_EQ(again.options.callerText, record.options.callerText);
}

TEST(Params, ANullConfigurationStaysNull) {
  QXAMigrateP2VSerializerParams record;
  record.ctid = 1;
  boost::intrusive_ptr<agent::Message> message(new agent::Message());
  message->putObj(record, 0);
  QXAMigrateP2VSerializerParams again;
  ASSERT_EQ(message->getObj(again, 0), 0);
  EXPECT_FALSE(again.options.config);
}

TEST(Params, ARefusedRecordLeavesTheTargetAlone) {
  QXAMigrateP2VSerializerParams record;
  record.ctid = 1;
  record.options.excludes = {"/a;reboot"};
  boost::intrusive_ptr<agent::Message> message(new agent::Message());
  message->putObj(record, 0);
  QXAMigrateP2VSerializerParams again;
  again.ctid = 5;
  EXPECT_NE(message->getObj(again, 0), 0);
  EXPECT_EQ(QXL::getErrorMessage(),
            "exclusion '/a;reboot' holds the character ';', which cannot be passed to a command");
  EXPECT_EQ(again.ctid, 5);
}

TEST(Params, AMessageWithoutTheRecordIsRefused) {
  boost::intrusive_ptr<agent::Message> message(new agent::Message());
  QXAMigrateP2VSerializerParams record;
  EXPECT_NE(message->getObj(record, 0), 0);
  EXPECT_EQ(QXL::getErrorMessage(), "the message lacks the object field 0");
  message.reset(new agent::Message(nlohmann::json::parse("{\"0\":{\"object\":{}}}")));
  EXPECT_NE(message->getObj(record, 0), 0);
  EXPECT_EQ(QXL::getErrorMessage(), "the migration parameters are incomplete");
}

}  // namespace
