#include "framework/migrate_params.h"

#include "agent/framework/validation.h"
#include "agent/system/last_error.h"
#include "framework/env_manager.h"

namespace QXA {

namespace {

// Fields of the record. Lists travel as their members one behind the other, each
// ended by a NUL byte; the configuration as its file's text.
enum Field {
  kFieldCtid = 1,
  kFieldExcludes = 2,
  kFieldConfig = 3,
  kFieldKeepOnFailure = 4,
  kFieldCallerFlag = 5,
  kFieldServices = 6,
  kFieldCallerText = 7
};

std::string packList(const std::vector<std::string>& list) {
  std::string text;
  for (const std::string& item : list) text.append(item).push_back('\0');
  return text;
}

std::vector<std::string> unpackList(const std::string& text) {
  std::vector<std::string> list;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find('\0', at), text.size());
    list.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return list;
}

}  // namespace

int QXAMigrateP2VSerializerParams::Writer::write(QXL::QXLMessageIterator& out) const {
  const QXL::QXLP2VMigrateOptions& fields = record_.options;
  std::vector<std::string> services;
  for (const QXL::QXLService& service : fields.services) services.push_back(service.name);
  out.putValueLongLong(record_.ctid, kFieldCtid);
  out.putValueBase64(packList(fields.excludes), kFieldExcludes);
  if (fields.config) {
    const QXAEnvConfigBashParser parser((QXL::QXLVocCacheLocal()));
    out.putValueBase64(parser.format(*fields.config), kFieldConfig);
  }
  out.putValueLongLong(fields.keepOnFailure, kFieldKeepOnFailure);
  out.putValueLongLong(fields.callerFlag, kFieldCallerFlag);
  out.putValueBase64(packList(services), kFieldServices);
  out.putValueBase64(fields.callerText, kFieldCallerText);
  return 0;
}

int QXAMigrateP2VSerializerParams::Reader::read(QXL::QXLMessageIterator& in) {
  QXAMigrateP2VSerializerParams record;
  std::string excludes;
  std::string services;
  long long keep = 0;
  long long flag = 0;
  if (in.getValueLongLong(record.ctid, kFieldCtid) != 0 ||
      in.getValueBase64(excludes, kFieldExcludes) != 0 ||
      in.getValueLongLong(keep, kFieldKeepOnFailure) != 0 ||
      in.getValueLongLong(flag, kFieldCallerFlag) != 0 ||
      in.getValueBase64(services, kFieldServices) != 0 ||
      in.getValueBase64(record.options.callerText, kFieldCallerText) != 0) {
    return agent::fail("the migration parameters are incomplete");
  }
  record.options.excludes = unpackList(excludes);
  record.options.keepOnFailure = keep != 0;
  record.options.callerFlag = flag != 0;
  for (const std::string& name : unpackList(services)) record.options.services.push_back({name});
  std::string text;
  if (in.getValueBase64(text, kFieldConfig) == 0) {
    record.options.config.reset(new QXAEnvConfig());
    const QXAEnvConfigBashParser parser((QXL::QXLVocCacheLocal()));
    if (parser.parse(text, *record.options.config) != 0) return -1;
  }
  const std::string problem = agent::checkRecord(record);
  if (!problem.empty()) return agent::fail(problem);
  record_ = record;
  return 0;
}

}  // namespace QXA
