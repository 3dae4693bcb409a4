// The node's tools are written in the words of the host: its containers, files and errors.
#ifndef QX_NODE_HOST_H
#define QX_NODE_HOST_H

namespace host {}

namespace node {
using namespace host;
}

#endif
