#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

#include "Lumo/IntfId.h"
#include "Tables/TableReader.h"
#include "Tables/TableWriter.h"

namespace Interface {

/// The names behind the interface ids of a table set, for people: an id is made from a name and
/// does not contain it.
class Names {
  public:
    static constexpr std::string_view mountPath = "interface/names";
    static constexpr std::string_view typeName = "Interface::Names";

    /// The names as the generation held by the reader has them; damage is left out.
    static Names read(const Tessel::TableReader& tables);

    /// One that the tables need not have.
    void add(const std::string& name) { names_.emplace(Lumo::IntfId(name).value(), name); }

    /// Empty for an unknown id.
    std::string_view name(Lumo::IntfId intf) const noexcept;
    std::size_t size() const noexcept { return names_.size(); }

  private:
    std::unordered_map<std::uint64_t, std::string> names_;
};

/// The writing side: makes the changes of a batch. Names are never removed.
class NamesWriter {
  public:
    NamesWriter(Tessel::TableWriter& tables, std::size_t table);

    /// Remembers the name of the Ethernet interface's id, and returns the id. A name of more than
    /// 100 bytes throws Tessel::RangeError.
    Lumo::IntfId intfId(std::string_view name);
    /// Removes the names added since the last commit, as the tables' writer does.
    void discard();

  private:
    Tessel::TableWriter* tables_;
    std::size_t table_;
    std::unordered_map<std::uint64_t, std::uint32_t> places_;
    std::uint32_t next_ = 0;
};

} // namespace Interface
