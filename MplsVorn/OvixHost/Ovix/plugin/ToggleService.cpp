#include "Ovix/plugin/ToggleService.h"

namespace Ovix {

ToggleService& ToggleService::instance() {
    static ToggleService service;
    return service;
}

} // namespace Ovix
