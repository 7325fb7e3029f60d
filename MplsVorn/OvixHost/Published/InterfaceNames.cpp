#include "Published/InterfaceNames.h"

#include <array>
#include <cassert>
#include <cstring>
#include <optional>

#include "Tessel/Exceptions.h"

namespace Interface {

using Tessel::RecordKind;
using Tessel::TableRef;

namespace {

// A name's record: the length, and the name filled up with zeros.
constexpr std::size_t maxName = 100;
constexpr std::size_t maxWords = 1 + (maxName + 7) / 8;

/// None when the record is not one of a name.
std::optional<std::string_view> nameIn(std::span<const std::uint64_t> words) noexcept {
    if (words.empty() || words[0] > maxName ||
        words[0] > (words.size() - 1) * sizeof(std::uint64_t)) {
        return std::nullopt;
    }
    return std::string_view(reinterpret_cast<const char*>(words.data() + 1), words[0]);
}

} // namespace

Names Names::read(const Tessel::TableReader& tables) {
    Names found;
    const std::size_t table = tables.table(mountPath, typeName);
    tables.forEach(table, [&](std::uint32_t, TableRef ref) {
        std::array<std::uint64_t, maxWords> words{};
        try {
            const auto read = tables.read(ref, RecordKind::interfaceName, words, "name at unit");
            if (const auto name = nameIn(read)) {
                found.names_.emplace(Lumo::IntfId(*name).value(), *name);
            }
        } catch (const Tessel::CorruptionDetected&) {
        }
    });
    return found;
}

std::string_view Names::name(Lumo::IntfId intf) const noexcept {
    const auto found = names_.find(intf.value());
    return found != names_.end() ? std::string_view(found->second) : std::string_view();
}

NamesWriter::NamesWriter(Tessel::TableWriter& tables, std::size_t table)
    : tables_(&tables), table_(table) {
    discard();
}

void NamesWriter::discard() {
    places_.clear();
    next_ = 0;
    for (std::uint32_t found = 0; found < tables_->entries(table_); ++next_) {
        if (const TableRef ref = tables_->entry(table_, next_)) {
            ++found;
            if (const auto name = nameIn(tables_->record(ref).subspan(1))) {
                places_.emplace(Lumo::IntfId(*name).value(), next_);
            }
        }
    }
}

Lumo::IntfId NamesWriter::intfId(std::string_view name) {
    const Lumo::IntfId intf(name);
    if (name.empty() || places_.contains(intf.value())) {
        return intf;
    }
    std::array<std::uint64_t, maxWords> words{};
    assert(name.size() <= maxName && !tables_->entry(table_, next_));
    words[0] = name.size();
    std::memcpy(words.data() + 1, name.data(), name.size());
    tables_->recordEntryIs(table_, next_, RecordKind::interfaceName,
                           std::span(words).first(1 + (name.size() + 7) / 8));
    places_.emplace(intf.value(), next_++);
    return intf;
}

} // namespace Interface
