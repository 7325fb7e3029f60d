#include "Tables/TableReader.h"

#include <cstring>

#include "Tables/MappedFiles.h"
#include "Tessel/Exceptions.h"

namespace Tessel {

std::uint64_t TableLayout::checkOf(const TableHeader& header) noexcept {
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

using namespace TableLayout;

namespace {

std::span<const std::uint64_t> wordsOf(std::span<const std::byte> memory) noexcept {
    return {reinterpret_cast<const std::uint64_t*>(memory.data()), memory.size() / unitBytes};
}

/// Of tables of any size.
std::uint64_t kindOf(TableHeader header) noexcept {
    header.regionBytes = 0;
    return checkOf(header);
}

} // namespace

TableReader::TableReader(TableMemory memory)
    : memory_(std::make_shared<const TableMemory>(std::move(memory))), name_(memory_->name()),
      words_(wordsOf(memory_->bytes())) {
    open();
}

TableReader::TableReader(std::string name, std::span<const std::byte> memory)
    : name_(std::move(name)), words_(wordsOf(memory)) {
    open();
}

Ptr<TableReader> TableReader::another() const {
    auto made = make<TableReader>(name_, std::as_bytes(words_));
    made->memory_ = memory_;
    return made;
}

void TableReader::memoryIs(TableMemory memory) {
    const TableReader opened(std::move(memory));
    if (opened.kind_ != kind_) {
        throw CorruptionDetected(name_ + ": other tables than before");
    }
    memory_ = opened.memory_;
    words_ = opened.words_;
    current_ = opened.current_;
    root_ = opened.root_;
    identity_ = opened.identity_;
    horizon_ = opened.horizon_;
    refused_.reset();
    ++held_;
}

void TableReader::open() {
    if (words_.size() < heapUnit) {
        corrupt("region size", words_.size() * unitBytes);
    }
    if (load(0) != magic) {
        corrupt("magic", load(0));
    }
    if (header().version != version) {
        throw CorruptionDetected(name_ + ": tables of version " + std::to_string(header().version) +
                                 ", not " + std::to_string(version));
    }
    if (header().regionBytes != words_.size() * unitBytes) {
        corrupt("region size", header().regionBytes);
    }
    if (header().tables > maxTables) {
        corrupt("number of tables", header().tables);
    }
    if (header().check != checkOf(header())) {
        corrupt("check of the header", header().check);
    }
    kind_ = kindOf(header());
    horizon_ = TableLayout::load(header().horizon);
    horizonGeneration(horizon_);
    pinNewest();
    if (root_.generation == 0) {
        corrupt("root at unit", current_.unit());
    }
}

std::size_t TableReader::table(std::string_view path, std::string_view typeName) const {
    for (std::size_t i = 0; i < header().tables; ++i) {
        const TableName& name = header().names[i];
        if (text(name.path.data(), name.path.size()) != path) {
            continue;
        }
        const std::string_view type = text(name.typeName.data(), name.typeName.size());
        if (type != typeName) {
            throw CorruptionDetected(name_ + ": " + std::string(path) + ": table of type \"" +
                                     std::string(type) + "\" is not a " + std::string(typeName));
        }
        return i;
    }
    throw CorruptionDetected(name_ + ": has no table " + std::string(path));
}

// Another root may become the newest one while this one is being read, and its place be used
// again; then there is a newer one to read.
bool TableReader::pinNewest() {
    for (;;) {
        const TableRef newest{TableLayout::load(header().current)};
        if (newest == current_ || newest.word == refused_) {
            return false;
        }
        try {
            takeRoot(newest);
            return true;
        } catch (const SnapshotLost&) {
        } catch (const CorruptionDetected&) {
            if (TableLayout::load(header().current) == newest.word) {
                refused_ = newest.word;
                throw;
            }
        }
    }
}

void TableReader::takeRoot(TableRef current) {
    // What is read here is not of the generation held, so nothing of it counts until all of it has
    // been checked.
    Root root{};
    std::array<std::uint64_t, rootWords> own{};
    const std::uint64_t identity = TableLayout::load(header().identity);
    if (current.unit() < heapUnit || std::uint64_t{current.unit()} + rootWords >= words_.size()) {
        corrupt("root at unit", current.unit());
    }
    const auto head = RecordHeader::of(load(current.unit()));
    std::uint64_t hash = recordSeed(RecordKind::root, current.unit(), head.units, head.ownWords);
    for (std::uint32_t i = 0; i < rootWords; ++i) {
        own[i] = load(current.unit() + 1 + i);
        hash = mix(hash, own[i]);
    }
    const bool whole = head.ownWords == rootWords && head.check == current.check() &&
                       static_cast<std::uint32_t>(hash) == current.check();
    std::memcpy(&root, own.data(), sizeof root);
    const std::uint64_t horizon = TableLayout::load(header().horizon);
    if (TableLayout::load(header().current) != current.word ||
        TableLayout::load(header().identity) != identity) {
        throw SnapshotLost(name_ + ": a newer generation is there");
    }
    if (!whole) {
        corrupt("root at unit", current.unit());
    }
    // A writer raises the horizon to at most the generation that it has published.
    if (root.heapUnits > words_.size() || horizonGeneration(horizon) > root.generation) {
        corrupt("generation", root.generation);
    }
    for (const Root::Table& table : root.tables) {
        if (table.directory != 0 &&
            (table.directory < heapUnit || table.directory + directoryUnits > root.heapUnits)) {
            corrupt("directory at unit", table.directory);
        }
    }
    root_ = root;
    current_ = current;
    identity_ = identity;
    ++held_;
    refused_.reset();
    horizon_ = horizon;
}

std::uint64_t TableReader::horizonGeneration(std::uint64_t word) const {
    const std::uint64_t generation = word >> 16U;
    if (word != sealedHorizon(generation)) {
        corrupt("horizon", word);
    }
    return generation;
}

void TableReader::horizonMoved() const {
    const std::uint64_t word = TableLayout::load(header().horizon);
    if (horizonGeneration(word) > root_.generation) {
        // No writer raises it beyond what it has published: nothing newer will come.
        if (!refreshNeeded()) {
            corrupt("horizon", word);
        }
        throw SnapshotLost(name_ + ": generation " + std::to_string(root_.generation) +
                           " is no longer kept");
    }
    horizon_ = word;
}

void TableReader::refuse(std::string_view what, std::uint64_t at) const {
    checkHeld();
    corrupt(what, at);
}

void TableReader::corrupt(std::string_view what, std::uint64_t at) const {
    if (MappedFiles::wasLost(words_.data())) {
        throw CorruptionDetected(name_ + ": the file has been cut short");
    }
    throw CorruptionDetected(name_ + ": " + std::string(what) + " " + std::to_string(at) +
                             " is invalid");
}

} // namespace Tessel
