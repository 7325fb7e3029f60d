#include "Published/Pseudowires.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <span>
#include <stdexcept>

#include "Tessel/Exceptions.h"

namespace L2 {

using Lumo::IpFamily;
using Lumo::IpGenAddr;
using Tessel::TableRef;

namespace {

// A record's words hold its bytes: fixed fields, then texts and addresses, each behind a byte with
// its length, and zeros up to the last word.
//
//      0       4       8        12     14     16     17      18       19
//     +-------+-------+--------+------+------+------+-------+--------+------+---------+------+-----
//     | id    | local | remote | MTUs of     | word | state | (0)    | name | circuit | why  | addr
//     |       | label | label  | both ends   |      |       |        |      |         |      | ...
//     +-------+-------+--------+------+------+------+-------+--------+------+---------+------+-----
constexpr std::uint32_t most = 1000;

class Packing {
  public:
    template <typename T>
    void number(T value) {
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(&value);
        bytes_.insert(bytes_.end(), bytes, bytes + sizeof value);
    }
    void text(std::string_view value) {
        value = value.substr(0, Pseudowire::maxText);
        number(static_cast<std::uint8_t>(value.size()));
        bytes_.insert(bytes_.end(), value.begin(), value.end());
    }
    void address(const IpGenAddr& value) {
        const std::size_t size = value.family() == IpFamily::none ? 0 : value.bits() / 8U;
        text({reinterpret_cast<const char*>(value.bytes().data()), size});
    }
    std::vector<std::uint64_t> words() const {
        std::vector<std::uint64_t> packed((bytes_.size() + 7) / 8);
        std::memcpy(packed.data(), bytes_.data(), bytes_.size());
        return packed;
    }

  private:
    std::vector<std::uint8_t> bytes_;
};

/// Reads what Packing has written; what is beyond the end reads as zeros and makes it invalid.
class Unpacking {
  public:
    explicit Unpacking(std::span<const std::uint64_t> words) noexcept
        : left_(reinterpret_cast<const char*>(words.data()), words.size_bytes()) {}

    template <typename T>
    T number() noexcept {
        T value{};
        const std::string_view bytes = take(sizeof value);
        if (isValid_) {
            std::memcpy(&value, bytes.data(), sizeof value);
        }
        return value;
    }
    std::string_view text() noexcept {
        const auto size = number<std::uint8_t>();
        isValid_ = isValid_ && size <= Pseudowire::maxText;
        return take(size);
    }
    IpGenAddr address() noexcept {
        const std::string_view bytes = text();
        const auto* from = reinterpret_cast<const std::uint8_t*>(bytes.data());
        isValid_ = isValid_ && (bytes.empty() || bytes.size() == IpGenAddr::ipv4Size ||
                                bytes.size() == IpGenAddr::ipv6Size);
        if (!isValid_ || bytes.empty()) {
            return {};
        }
        return bytes.size() == IpGenAddr::ipv4Size ? IpGenAddr::ipv4(from) : IpGenAddr::ipv6(from);
    }
    bool isValid() const noexcept { return isValid_; }

  private:
    std::string_view take(std::size_t size) noexcept {
        isValid_ = isValid_ && size <= left_.size();
        if (!isValid_) {
            return {};
        }
        const std::string_view taken = left_.substr(0, size);
        left_.remove_prefix(size);
        return taken;
    }

    std::string_view left_;
    bool isValid_ = true;
};

std::vector<std::uint64_t> pack(const Pseudowire& pseudowire) {
    Packing packed;
    packed.number(pseudowire.id);
    packed.number(pseudowire.localLabel);
    packed.number(pseudowire.remoteLabel);
    packed.number(pseudowire.localMtu);
    packed.number(pseudowire.remoteMtu);
    packed.number(static_cast<std::uint8_t>(pseudowire.controlWord));
    packed.number(static_cast<std::uint8_t>(pseudowire.state));
    packed.text(pseudowire.name);
    packed.text(pseudowire.circuit);
    packed.text(pseudowire.why);
    packed.address(pseudowire.neighbour);
    const std::size_t adjacent = std::min(pseudowire.adjacent.size(), Pseudowire::maxNextHops);
    packed.number(static_cast<std::uint8_t>(adjacent));
    for (std::size_t i = 0; i < adjacent; ++i) {
        packed.address(pseudowire.adjacent[i]);
    }
    return packed.words();
}

/// None when that is no pseudowire.
std::optional<Pseudowire> unpack(std::span<const std::uint64_t> words) {
    Unpacking packed(words);
    Pseudowire found;
    found.id = packed.number<std::uint32_t>();
    found.localLabel = packed.number<std::uint32_t>();
    found.remoteLabel = packed.number<std::uint32_t>();
    found.localMtu = packed.number<std::uint16_t>();
    found.remoteMtu = packed.number<std::uint16_t>();
    found.controlWord = packed.number<std::uint8_t>() != 0;
    found.state = static_cast<Pseudowire::State>(packed.number<std::uint8_t>());
    found.name = packed.text();
    found.circuit = packed.text();
    found.why = packed.text();
    found.neighbour = packed.address();
    for (auto left = packed.number<std::uint8_t>(); left > 0 && packed.isValid(); --left) {
        found.adjacent.push_back(packed.address());
    }
    const bool isKnown = found.state >= Pseudowire::State::up &&
                         found.state <= Pseudowire::State::noDaemon && !found.name.empty();
    return packed.isValid() && isKnown ? std::optional(std::move(found)) : std::nullopt;
}

} // namespace

std::vector<Pseudowire> Pseudowires::read(const Tessel::TableReader& tables) {
    constexpr std::string_view what = "pseudowire at unit";
    std::vector<Pseudowire> all;
    std::vector<std::uint64_t> words;
    tables.forEach(tables.table(mountPath, typeName), [&](std::uint32_t, TableRef ref) {
        words.resize(tables.headOf(ref, what).ownWords);
        tables.read(ref, Tessel::RecordKind::pseudowire, words, what);
        auto found = unpack(words);
        if (!found) {
            tables.refuse(what, ref.unit());
        }
        all.push_back(*std::move(found));
    });
    return all;
}

void PseudowiresWriter::pseudowiresAre(const std::vector<Pseudowire>& all) {
    if (all.size() > most) {
        throw std::length_error("more than 1000 pseudowires");
    }
    std::uint32_t place = 0;
    for (const Pseudowire& pseudowire : all) {
        tables_->recordEntryIs(table_, place++, Tessel::RecordKind::pseudowire, pack(pseudowire));
    }
    for (; place < most; ++place) {
        tables_->recordEntryDel(table_, place);
    }
}

std::vector<Pseudowire> PseudowiresWriter::all() const {
    std::vector<Pseudowire> all;
    for (std::uint32_t place = 0; place < most; ++place) {
        const TableRef ref = tables_->entry(table_, place);
        auto found = ref ? unpack(tables_->record(ref).subspan(1)) : std::nullopt;
        if (found) {
            all.push_back(*std::move(found));
        }
    }
    return all;
}

} // namespace L2
