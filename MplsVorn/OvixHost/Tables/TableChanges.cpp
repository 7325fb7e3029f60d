#include "Tables/TableChanges.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "Tessel/Exceptions.h"

namespace Tessel {

using namespace TableLayout;

namespace {

/// No page is made in such a generation.
constexpr std::uint64_t notSeen = ~std::uint64_t{0};

} // namespace

TableChanges::TableChanges(Ptr<const TableReader> tables, std::size_t table)
    : TableChanges(std::move(tables), table, Seen::nothing) {
    while (!done()) {
        try {
            look(directoryPages, [](std::uint32_t) {});
        } catch (const CorruptionDetected&) {
            // What cannot be read counts as seen, and empty.
        }
    }
}

void TableChanges::compareAll() noexcept {
    toSee_ = directoryPages;
    changedIn_ = tables_->changedIn(table_);
    if (tables_->identity() != identity_) {
        identity_ = tables_->identity();
        std::replace_if(
            madeIn_.begin(), madeIn_.end(), [](std::uint64_t madeIn) { return madeIn != 0; },
            notSeen);
    }
}

bool TableChanges::differs(std::size_t page) {
    try {
        return tables_->pageMadeIn(table_, page) != madeIn_[page];
    } catch (const CorruptionDetected&) {
        skip();
        throw;
    }
}

void TableChanges::seePage(std::size_t page) {
    assert(page < directoryPages);
    const auto first = static_cast<std::uint32_t>(page * pageEntries);
    const std::uint64_t madeIn = tables_->pageMadeIn(table_, page);
    std::unique_ptr<Page>& seen = pages_[page];
    if (!seen) {
        seen = std::make_unique<Page>();
    }
    try {
        // What is found changed stays so even if the page turns out to be lost: it is compared
        // again.
        tables_->visitPage(table_, page, [&](std::uint32_t i, std::uint64_t word) {
            if ((*seen)[i] != word) [[unlikely]] {
                changed_.push_back(first + i);
                (*seen)[i] = word;
            }
        });
    } catch (const CorruptionDetected&) {
        madeIn_[page] = madeIn;
        skip();
        throw;
    }
    madeIn_[page] = madeIn;
    if (madeIn == 0) {
        seen.reset();
    }
}

} // namespace Tessel
