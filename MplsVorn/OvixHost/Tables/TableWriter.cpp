#include "Tables/TableWriter.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <limits>
#include <random>
#include <stdexcept>
#include <unistd.h>

#include "Tables/TableRecovery.h"
#include "Tessel/Exceptions.h"

namespace Tessel {

using namespace TableLayout;

TableWriter::TableWriter(TableMemory memory, std::span<const TableDescription> tables,
                         std::chrono::milliseconds keptFor)
    : memory_(std::move(memory)), heap_(memory_, keptFor) {
    if (!memory_.ensure(heapBytesOffset)) {
        throw std::length_error(name() + ": no memory left for the tables");
    }
    // The magic comes last, so what lacks it was never finished.
    if (load(header().magic) == 0) {
        initialize(tables);
    } else {
        takeOver(tables);
    }
    store(header().writer, static_cast<std::uint64_t>(getpid()));
    identity_ = header().identity;
}

std::uint64_t TableWriter::newIdentity() {
    std::random_device random;
    return std::uint64_t{random()} << 32U | random();
}

bool TableWriter::lockAgain(std::chrono::milliseconds wait) {
    assert(!changed_);
    if (!memory_.lockAgain(wait) || memory_.wasLost() || load(header().current) != current_.word) {
        memory_.unlock();
        return false;
    }
    store(header().writer, static_cast<std::uint64_t>(getpid()));
    return true;
}

TableHeader TableWriter::newHeader(std::span<const TableDescription> tables,
                                   std::size_t regionBytes) {
    TableHeader made{};
    made.magic = magic;
    made.version = version;
    made.tables = static_cast<std::uint32_t>(tables.size());
    made.regionBytes = regionBytes;
    made.horizon = sealedHorizon(0);
    made.identity = newIdentity();
    for (std::size_t i = 0; i < tables.size(); ++i) {
        std::copy(tables[i].path.begin(), tables[i].path.end(), made.names[i].path.begin());
        std::copy(tables[i].typeName.begin(), tables[i].typeName.end(),
                  made.names[i].typeName.begin());
    }
    made.check = checkOf(made);
    return made;
}

void TableWriter::initialize(std::span<const TableDescription> tables) {
    TableHeader made = newHeader(tables, memory_.bytes().size());
    made.magic = 0;
    std::memcpy(memory_.bytes().data(), &made, sizeof made);
    changed_ = true;
    commit();
    store(header().magic, magic);
}

// Not repaired here: changes may be lost by that, which somebody has to know.
Ptr<TableReader> TableWriter::openOrAdvise() const {
    try {
        return make<TableReader>(name(), memory_.bytes());
    } catch (const CorruptionDetected& damage) {
        throw header().version != version
            ? damage
            : CorruptionDetected(damage.what() +
                                 std::string("; \"ovixctl tables repair\" makes the "
                                             "tables usable again"));
    }
}

void TableWriter::takeOver(std::span<const TableDescription> tables) {
    const Ptr<const TableReader> opened = openOrAdvise();
    const TableReader& reader = *opened;
    for (std::size_t i = 0; i < tables.size(); ++i) {
        if (reader.table(tables[i].path, tables[i].typeName) != i) {
            throw CorruptionDetected(name() + ": tables in another order");
        }
    }
    current_ = reader.current();
    root_ = reader.root();
    working_ = root_.tables;
    TableRecovery found = TableRecovery::walk(reader, tables);
    found.reached.push_back({current_.unit(), rootWords + 1});
    heap_.recover(std::move(found.reached), static_cast<std::uint32_t>(root_.heapUnits),
                  root_.generation - 1);
    for (const TableRecovery::Damage& damage : found.damaged) {
        takeOut(damage.table, damage.key, damage.wholePage);
        ++repaired_;
    }
    for (std::size_t i = 0; i < tables.size(); ++i) {
        changed_ = changed_ || working_[i].entries != found.entries[i];
        working_[i].entries = found.entries[i];
    }
    commit();
}

// Damage is not followed, so its room is not released here: the next writer to take over finds it
// unreachable.
void TableWriter::takeOut(std::size_t table, std::uint32_t key, bool wholePage) {
    if (!wholePage) {
        entryIs(table, key, {});
        return;
    }
    ownDirectory(table);
    const std::size_t at = working_[table].directory + 2 * (key / pageEntries);
    store(words()[at], 0);
    store(words()[at + 1], 0);
}

void TableWriter::commit() {
    if (!changed_) {
        return;
    }
    checkMemory();
    Root next{};
    next.generation = root_.generation + 1;
    next.committedAt = static_cast<std::uint64_t>(
        std::chrono::system_clock::now().time_since_epoch() / std::chrono::nanoseconds(1));
    next.tables = working_;
    publish(next);
    checkMemory();
}

void TableWriter::checkMemory() const {
    if (memory_.wasLost()) {
        throw CorruptionDetected(name() + ": the file has been cut short");
    }
}

void TableWriter::publish(const Root& next) {
    const std::uint32_t unit = heap_.take(rootWords + 1);
    assert(next.generation == root_.generation + 1);
    Root root = next;
    root.heapUnits = heap_.end();
    std::array<std::uint64_t, rootWords> own{};
    std::memcpy(own.data(), &root, sizeof root);
    const TableRef ref = recordIs(unit, RecordKind::root, own);
    if (current_) {
        heap_.release(current_.unit(), rootWords + 1);
    }
    store(header().current, ref.word);
    heap_.committed(root_.generation);
    root_ = root;
    current_ = ref;
    changed_ = false;
}

void TableWriter::discard() {
    heap_.discarded();
    working_ = root_.tables;
    changed_ = false;
}

Ptr<TableReader> TableWriter::working() const {
    Root now = root_;
    now.heapUnits = heap_.end();
    now.tables = working_;
    return make<TableReader>(name(), memory(), now);
}

std::uint32_t TableWriter::page(std::size_t table, std::uint32_t key) const {
    const std::uint32_t directory = working_[table].directory;
    return directory != 0 ? TableRef{words()[directory + 2 * (key / pageEntries)]}.unit() : 0;
}

TableRef TableWriter::entry(std::size_t table, std::uint32_t key) const {
    assert(table < maxTables);
    const std::uint32_t at = key <= maxKey ? page(table, key) : 0;
    return at != 0 ? TableRef{words()[at + key % pageEntries]} : TableRef{};
}

/// The block itself if no reader sees it, else a copy that none sees; a blank one for 0.
std::uint32_t TableWriter::ownBlock(std::uint32_t unit, std::size_t count) {
    if (unit != 0 && heap_.isNew(unit)) {
        return unit;
    }
    const std::uint32_t own = heap_.take(static_cast<std::uint32_t>(count));
    for (std::size_t i = 0; i < count; ++i) {
        store(words()[own + i], unit != 0 ? words()[unit + i] : 0);
    }
    if (unit != 0) {
        heap_.release(unit, static_cast<std::uint32_t>(count));
    }
    return own;
}

void TableWriter::ownDirectory(std::size_t table) {
    working_[table].directory = ownBlock(working_[table].directory, directoryUnits);
    working_[table].changedIn = root_.generation + 1;
    changed_ = true;
}

void TableWriter::entryIs(std::size_t table, std::uint32_t key, TableRef ref) {
    if (key > maxKey) {
        throw std::invalid_argument("key " + std::to_string(key) + " is larger than " +
                                    std::to_string(maxKey));
    }
    assert(table < header().tables || header().magic == 0);
    const TableRef before = entry(table, key);
    if (before == ref) {
        return;
    }
    ownDirectory(table);
    Root::Table& root = working_[table];
    const auto number = static_cast<std::uint32_t>(key / pageEntries);
    const std::uint32_t at = ownBlock(page(table, key), pageEntries);
    store(words()[root.directory + 2 * number], sealed(at, pagePlace(table, number)).word);
    store(words()[root.directory + 2 * number + 1], root_.generation + 1);
    store(words()[at + key % pageEntries], ref.word);
    if (!before) {
        ++root.entries;
    } else if (!ref) {
        assert(root.entries > 0);
        --root.entries;
    }
}

void TableWriter::recordEntryIs(std::size_t table, std::uint32_t key, RecordKind kind,
                                std::span<const std::uint64_t> own) {
    if (const TableRef before = entry(table, key)) {
        const auto held = record(before).subspan(1);
        if (std::equal(own.begin(), own.end(), held.begin(), held.end())) {
            return;
        }
    }
    replaceRecord(table, key, recordIs(take(1 + own.size()), kind, own));
}

void TableWriter::replaceRecord(std::size_t table, std::uint32_t key, TableRef made) {
    const TableRef before = entry(table, key);
    try {
        entryIs(table, key, made);
    } catch (const std::logic_error&) { // no room, or no such key
        release(made);
        throw;
    }
    if (before) {
        release(before);
    }
}

bool TableWriter::recordEntryDel(std::size_t table, std::uint32_t key) {
    const TableRef before = entry(table, key);
    if (!before) {
        return false;
    }
    entryIs(table, key, {});
    release(before);
    return true;
}

std::uint32_t TableWriter::take(std::size_t units) {
    if (units > std::numeric_limits<std::uint16_t>::max()) {
        throw std::length_error("a record of " + std::to_string(units) + " units is too large");
    }
    return heap_.take(static_cast<std::uint32_t>(units));
}

std::pair<std::uint64_t, TableRef> TableWriter::seal(std::uint32_t unit, RecordKind kind,
                                                     std::span<const std::uint64_t> own,
                                                     std::size_t wordsBehind) {
    RecordHeader head{0, static_cast<std::uint16_t>(1 + own.size() + wordsBehind),
                      static_cast<std::uint16_t>(own.size())};
    std::uint64_t hash = recordSeed(kind, unit, head.units, head.ownWords);
    for (const std::uint64_t word : own) {
        hash = mix(hash, word);
    }
    head.check = static_cast<std::uint32_t>(hash);
    return {head.word(), TableRef::of(unit, head.check)};
}

TableRef TableWriter::recordIs(std::uint32_t unit, RecordKind kind,
                               std::span<const std::uint64_t> own,
                               std::span<const std::uint64_t> behind) {
    const auto [head, ref] = seal(unit, kind, own, behind.size());
    assert(unit >= heapUnit);
    std::uint64_t* to = words() + unit;
    store(*to++, head);
    for (const std::uint64_t word : own) {
        store(*to++, word);
    }
    for (const std::uint64_t word : behind) {
        store(*to++, word);
    }
    changed_ = true;
    return ref;
}

void TableWriter::release(TableRef record) {
    assert(record);
    const std::uint32_t units = RecordHeader::of(words()[record.unit()]).units;
    checkMemory(); // which reading may have shown to be lost
    heap_.release(record.unit(), units);
    changed_ = true;
}

std::span<const std::uint64_t> TableWriter::record(TableRef ref) const {
    const std::uint64_t* at = words() + ref.unit();
    return {at, RecordHeader::of(*at).ownWords + std::size_t{1}};
}

std::size_t TableWriter::usedBytes() const noexcept {
    return heapBytesOffset + heap_.liveUnits() * unitBytes;
}

} // namespace Tessel
