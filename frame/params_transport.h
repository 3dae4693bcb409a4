// The migration parameters record on its way through messages: one pair of
// functions for both operators and both proxies.
#ifndef QX_FRAME_PARAMS_TRANSPORT_H
#define QX_FRAME_PARAMS_TRANSPORT_H

#include <boost/smart_ptr/shared_ptr.hpp>

#include "framework/haul.h"
#include "framework/message.h"

namespace P2V {

/// A new record with its defaults.
boost::shared_ptr<QXL::QXLHaulSerializerBaseParams> newParams();

/// Write the whole record as one object at the message's current position, and
/// fill a record from there. The record must not be null (the process stops on
/// the pointer's assertion). Both return 0, or non-zero when the framework
/// refused, with the reason in QXL::getErrorMessage(), and -1 for a record that
/// is none of this plug-in.
int serializeParams(const boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>& params,
                    const boost::intrusive_ptr<QXL::QXLMessageIterator>& out);
int deserializeParams(const boost::intrusive_ptr<QXL::QXLMessageIterator>& in,
                      const boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>& params);

}  // namespace P2V

#endif
