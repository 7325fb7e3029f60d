#include "route/EntryTable.h"

namespace OvixCtl {

std::optional<Mpls::TableId> lfibNamed(std::string_view name) noexcept {
    for (std::size_t i = 0; i < Mpls::lfibs; ++i) {
        if (entryTableNames[i] == name) {
            return static_cast<Mpls::TableId>(i);
        }
    }
    return std::nullopt;
}

} // namespace OvixCtl
