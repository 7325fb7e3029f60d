#include "Lumo/MplsLabelOperation.h"

#include <ostream>

namespace Lumo {

std::ostream& operator<<(std::ostream& out, MplsLabelAction action) {
    return out << static_cast<unsigned>(action);
}

} // namespace Lumo
