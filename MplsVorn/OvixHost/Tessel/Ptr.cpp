#include "Tessel/Ptr.h"

namespace Tessel {

bool Threading::multiThreaded_ = false;

} // namespace Tessel
