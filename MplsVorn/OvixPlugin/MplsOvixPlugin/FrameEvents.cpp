#include "FrameEvents.h"

namespace Ovix {

TraceSource& mainTrace() {
    static TraceSource& source = TraceSource::named("Routing::Mpls", "Ovix::Routing::Mpls");
    return source;
}

} // namespace Ovix
