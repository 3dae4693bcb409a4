// The parameters of one migration from a physical server into a container.
#ifndef QX_FRAMEWORK_MIGRATE_PARAMS_H
#define QX_FRAMEWORK_MIGRATE_PARAMS_H

#include <boost/smart_ptr/shared_ptr.hpp>
#include <string>
#include <vector>

#include "framework/env_config.h"
#include "framework/haul.h"
#include "framework/message.h"

namespace QXL {

/// A service of the server, known by its script under /etc/init.d.
struct QXLService {
  std::string name;
};

/// What to copy and how.
struct QXLP2VMigrateOptions {
  std::vector<std::string> excludes;            ///< path patterns not to be copied
  boost::shared_ptr<QXA::QXAEnvConfig> config;  ///< of the container; may be null
  bool keepOnFailure = false;                   ///< keep what a failed migration copied
  bool callerFlag = false;                      ///< the caller's own; carried, not read
  std::vector<QXLService> services;             ///< stopped between the two copies
  std::string callerText;                       ///< the caller's own; carried, not read
};

}  // namespace QXL

namespace QXA {

struct QXL_API QXAMigrateP2VSerializerParams : QXL::QXLHaulSerializerBaseParams {
  QXL::QXLP2VMigrateOptions options;

  /// The record's layout in a message. The reader also refuses values that must
  /// not reach a shell or the file system: it returns non-zero with a text that
  /// names the value in QXL::getErrorMessage().
  class QXL_API Writer : public QXL::QXLWriterPrototype {
   public:
    explicit Writer(const QXAMigrateP2VSerializerParams& record) : record_(record) {}
    int write(QXL::QXLMessageIterator& out) const override;

   private:
    const QXAMigrateP2VSerializerParams& record_;
  };

  class QXL_API Reader : public QXL::QXLReaderPrototype {
   public:
    explicit Reader(QXAMigrateP2VSerializerParams& record)
        : QXLReaderPrototype(QXL::QXLReaderRequired), record_(record) {}
    int read(QXL::QXLMessageIterator& in) override;

   private:
    QXAMigrateP2VSerializerParams& record_;
  };
};

}  // namespace QXA

#endif
