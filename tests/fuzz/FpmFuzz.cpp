#include <cstdio>
#include <cstdlib>

#include "FpmMutation.h"

/// Any bytes as a connection of zebra's FPM client. The last byte is how large the pieces are in
/// which they arrive; whatever it is, the same comes out.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace TestSupport::Fpm;
    if (size == 0) {
        return 0;
    }
    const Bytes bytes(data, data + size - 1);
    const std::size_t piece = 1U + data[size - 1];
    const std::string wrong = wrongWith(bytes, piece);
    if (!wrong.empty() || linesOf(bytes, piece) != linesOf(bytes)) {
        std::fprintf(stderr, "%s\n", wrong.empty() ? "pieces matter" : wrong.c_str());
        std::abort();
    }
    return 0;
}
