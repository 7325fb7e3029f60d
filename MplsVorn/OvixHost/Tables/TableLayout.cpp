#include "Tables/TableLayout.h"

#include <cstring>

namespace Tessel::TableLayout {

std::uint64_t checkOf(const TableHeader& header) noexcept {
    std::uint64_t hash = mix(header.magic, header.version);
    hash = mix(hash, header.tables);
    hash = mix(hash, header.regionBytes);
    for (const TableName& name : header.names) {
        std::array<std::uint64_t, sizeof(TableName) / unitBytes> words{};
        std::memcpy(words.data(), &name, sizeof name);
        for (const std::uint64_t word : words) {
            hash = mix(hash, word);
        }
    }
    return hash;
}

} // namespace Tessel::TableLayout
