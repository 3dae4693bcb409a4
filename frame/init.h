// What the agent looks up by name in the loaded plug-in.
#ifndef QX_FRAME_INIT_H
#define QX_FRAME_INIT_H

#include "framework/op_factory.h"

extern "C" {

/// Registers the plug-in's five factories as the unnamed implementation of their
/// roles. A role that already has one keeps it. Returns 0. An allocation that
/// fails throws; what was registered before stays. Called by one thread, before
/// the first request.
QXL_API int initLibrary();

/// Takes the registrations back; harmless when there are none. Objects made by
/// the factories live on. Returns 0. Called by one thread, after the last request.
QXL_API int finiLibrary();

/// The operator factories; they exist from load to unload, whether or not
/// initLibrary was called.
QXL_API extern boost::intrusive_ptr<QXL::QXLOpFactory> factoryQXLinMigrateP2VSerializeOperator;
QXL_API extern boost::intrusive_ptr<QXL::QXLOpFactory> factoryQXLinMigrateP2VDeserializeOperator;
}

#endif
