// The factories of what the folders above this one implement. Registration needs
// them but must not know those classes: each folder defines the function that
// makes its own, and the linker joins them.
//
// Each call allocates a new factory without state; the pointer owns it.
#ifndef QX_FRAME_FACTORIES_H
#define QX_FRAME_FACTORIES_H

#include "framework/functionality.h"

namespace P2V {

typedef boost::shared_ptr<QXL::QXLFunctionalFactoryLocal<QXL::QXLHaulControlPtr>> ControlFactory;
typedef boost::shared_ptr<QXL::QXLFunctionalFactoryLocal<QXL::QXLHaulSerializerPtr>>
    LocalSerializerFactory;
typedef boost::shared_ptr<QXL::QXLFunctionalFactoryLocal<QXL::QXLHaulDeserializerPtr>>
    LocalDeserializerFactory;

ControlFactory newControlFactory();                      ///< in control/
LocalSerializerFactory newLocalSerializerFactory();      ///< in migrate/
LocalDeserializerFactory newLocalDeserializerFactory();  ///< in migrate/

}  // namespace P2V

#endif
