#include "SourceDir.h"

const char* TestSupport::sourceDir() noexcept {
    return OVIX_SOURCE_DIR;
}
