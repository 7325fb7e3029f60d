#include "EthernetCard.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <rte_bus.h>
#include <rte_dev.h>
#include <rte_ethdev.h>
#include <rte_mbuf.h>
#include <rte_prefetch.h>
#include <utility>

namespace OvixDpdk {

namespace {

constexpr std::uint16_t ringSize = OvixAgent::Card::queueFrames;
/// What is received, lent and cached, beside what lies in the rings of the cards that send it.
constexpr unsigned int buffers = 2 * ringSize;
/// Bytes that are not lent are looked for in vain this often in each burst.
constexpr unsigned int mostStrangers = 2;
/// Ethernet with two tags and its check sequence.
constexpr std::uint32_t beyondMtu = 26;

static_assert(OvixAgent::frameHeadroom <= RTE_PKTMBUF_HEADROOM);

/// Whose frames this thread has; of all cards that it serves, that which received last.
thread_local EthernetCard* lender = nullptr;

[[noreturn]] void fail(const std::string& device, const std::string& what, int error = 0) {
    throw OvixAgent::CardError(
        "device " + device + ": " + what +
        (error == 0 ? "" : std::string(": ") + rte_strerror(std::abs(error))));
}

std::string nameOf(const std::string& device) {
    return device.substr(0, device.find(','));
}

bool isPciAddress(const std::string& name) {
    return name.size() >= 7 && name.find(':') != std::string::npos &&
           std::isxdigit(static_cast<unsigned char>(name[0])) != 0;
}

/// Before DPDK's own words for it, which name neither the driver nor what helps.
void checkPciDevice(const std::string& device) {
    const std::string name = nameOf(device);
    if (!isPciAddress(name)) {
        return;
    }
    const std::filesystem::path at = "/sys/bus/pci/devices/" + name;
    std::error_code none;
    if (!std::filesystem::exists(at, none)) {
        fail(device, "there is no such PCI device; dpdk-devbind.py --status lists them");
    }
    const std::string driver = std::filesystem::read_symlink(at / "driver", none).filename();
    const bool isShared = driver.starts_with("mlx"); // works beside the kernel's driver
    if (driver != "vfio-pci" && driver != "uio_pci_generic" && driver != "igb_uio" && !isShared) {
        fail(device, (driver.empty() ? "is bound to no driver"
                                     : "is bound to the kernel's driver " + driver) +
                         "; dpdk-devbind.py --bind=vfio-pci " + name + " gives it to DPDK");
    }
}

std::uint16_t probe(const std::string& device) {
    std::uint16_t port = 0;
    const std::string name = nameOf(device);
    if (rte_eth_dev_get_port_by_name(name.c_str(), &port) == 0) {
        fail(device, "another port has it");
    }
    checkPciDevice(device);
    if (const int error = rte_dev_probe(device.c_str()); error != 0) {
        fail(device,
             "cannot be opened, DPDK knows it as a PCI address or as a driver's name, such "
             "as net_af_packet0,iface=eth0",
             error);
    }
    if (rte_eth_dev_get_port_by_name(name.c_str(), &port) != 0) {
        fail(device, "is no Ethernet device");
    }
    return port;
}

} // namespace

EthernetCard::EthernetCard(const OvixAgent::CardOptions& options)
    : device_(options.device), port_(probe(options.device)) {
    std::uint16_t mtu = 0;
    rte_eth_dev_get_mtu(port_, &mtu);
    mtu_ = options.mtu == 0 ? mtu : options.mtu;
    makeBuffers(options.cards);
    start(options);
    takeMac(options.mac);
}

void EthernetCard::makeBuffers(std::size_t cards) {
    const auto room = static_cast<std::uint16_t>(std::min<std::uint32_t>(
        std::max<std::uint32_t>(mtu_ + beyondMtu, RTE_MBUF_DEFAULT_DATAROOM) + RTE_PKTMBUF_HEADROOM,
        UINT16_MAX));
    const auto count = static_cast<unsigned int>(buffers + cards * ringSize - 1);
    pool_ = rte_pktmbuf_pool_create(("ovix" + std::to_string(port_)).c_str(), count, 256, 0, room,
                                    rte_eth_dev_socket_id(port_));
    if (pool_ == nullptr) {
        fail(device_, "no memory for frames; dpdk: eal: [-m, MEGABYTES] gives more", rte_errno);
    }
}

void EthernetCard::start(const OvixAgent::CardOptions& options) {
    rte_eth_conf config{};
    config.rxmode.mtu = options.mtu; // 0: the driver's
    std::uint16_t receives = ringSize;
    std::uint16_t sends = ringSize;
    int error = rte_eth_dev_configure(port_, 1, 1, &config);
    if (options.mtu != 0) {
        // Drivers without this have taken it with the configuration.
        const int refused =
            error != 0 ? error
                       : rte_eth_dev_set_mtu(port_, static_cast<std::uint16_t>(options.mtu));
        if (refused != 0 && refused != -ENOTSUP) {
            fail(device_, "does not take mtu " + std::to_string(options.mtu), refused);
        }
    }
    error = error != 0 ? error : rte_eth_dev_adjust_nb_rx_tx_desc(port_, &receives, &sends);
    const auto near = static_cast<unsigned int>(rte_eth_dev_socket_id(port_));
    error = error != 0 ? error : rte_eth_rx_queue_setup(port_, 0, receives, near, nullptr, pool_);
    error = error != 0 ? error : rte_eth_tx_queue_setup(port_, 0, sends, near, nullptr);
    error = error != 0 ? error : rte_eth_dev_start(port_);
    if (error != 0) {
        fail(device_, "cannot be started", error);
    }
    rte_eth_promiscuous_enable(port_);  // stations are checked by who takes the frames
    rte_eth_allmulticast_enable(port_); // for devices without the other
}

void EthernetCard::takeMac(const Lumo::EthAddr& asked) {
    rte_ether_addr own{};
    if (asked != Lumo::EthAddr{}) {
        // A card that cannot is promiscuous, and hears its frames all the same.
        std::copy(asked.begin(), asked.end(), std::begin(own.addr_bytes));
        rte_eth_dev_default_mac_addr_set(port_, &own);
        mac_ = asked;
        return;
    }
    rte_eth_macaddr_get(port_, &own);
    std::copy(std::begin(own.addr_bytes), std::end(own.addr_bytes), mac_.begin());
}

EthernetCard::~EthernetCard() {
    giveBack();
    flush();
    lender = lender == this ? nullptr : lender;
    rte_eth_dev_stop(port_);
    rte_eth_dev_close(port_);
    rte_mempool_free(pool_);
}

bool EthernetCard::isLinkUp() {
    rte_eth_link link{};
    return rte_eth_link_get_nowait(port_, &link) == 0 && link.link_status == RTE_ETH_LINK_UP;
}

void EthernetCard::giveBack() {
    // Null for what was sent, which this leaves out.
    rte_pktmbuf_free_bulk(lent_.data(), static_cast<unsigned int>(std::exchange(lentCount_, 0)));
    nextLent_ = 0;
    strangers_ = 0;
}

std::size_t EthernetCard::receive(std::span<OvixAgent::WritableFrame> room) {
    giveBack();
    lender = this;
    std::array<rte_mbuf*, most> came{};
    const auto asked = static_cast<std::uint16_t>(std::min(room.size(), most));
    const std::size_t count = rte_eth_rx_burst(port_, 0, came.data(), asked);
    for (std::size_t i = 0; i < count; ++i) {
        rte_prefetch0(rte_pktmbuf_mtod(came[i], const void*));
    }
    for (std::size_t i = 0; i < count; ++i) {
        rte_mbuf* const buffer = came[i];
        if (buffer->nb_segs > 1 && rte_pktmbuf_linearize(buffer) != 0) [[unlikely]] {
            rte_pktmbuf_free(buffer);
            ++cutUp_;
            continue;
        }
        room[lentCount_] = {.bytes = rte_pktmbuf_mtod(buffer, std::uint8_t*),
                            .size = buffer->data_len,
                            .originalLength = buffer->data_len,
                            .headroom = buffer->data_off,
                            .time = {}};
        lent_[lentCount_++] = buffer;
    }
    return lentCount_;
}

bool EthernetCard::queue(std::span<const std::uint8_t> bytes) {
    rte_mbuf* const buffer = copyOf(bytes);
    if (buffer != nullptr) {
        append(buffer);
    }
    return buffer != nullptr;
}

std::size_t EthernetCard::queueLent(std::span<const OvixAgent::Frame> frames) {
    EthernetCard* const from = lender;
    std::size_t queued = 0;
    for (const OvixAgent::Frame& frame : frames) {
        rte_mbuf* buffer = from == nullptr ? nullptr : from->takeLent(frame.bytes);
        buffer = buffer == nullptr ? copyOf(frame.bytes) : buffer;
        if (buffer != nullptr) {
            append(buffer);
            ++queued;
        }
    }
    return queued;
}

/// The buffer that the bytes lie in, made theirs; null when none of those lent does.
rte_mbuf* EthernetCard::takeLent(std::span<const std::uint8_t> bytes) {
    for (std::size_t tried = 0; tried < lentCount_ && strangers_ < mostStrangers; ++tried) {
        const std::size_t at = nextLent_ < lentCount_ ? nextLent_ : 0;
        nextLent_ = at + 1;
        rte_mbuf* const buffer = lent_[at];
        if (buffer == nullptr) {
            continue;
        }
        const auto* const start = static_cast<const std::uint8_t*>(buffer->buf_addr);
        const auto before =
            static_cast<std::size_t>(bytes.data() - start); // far beyond, if not in it
        if (before < buffer->buf_len && bytes.size() <= buffer->buf_len - before) {
            lent_[at] = nullptr;
            buffer->data_off = static_cast<std::uint16_t>(before);
            buffer->data_len = static_cast<std::uint16_t>(bytes.size());
            buffer->pkt_len = buffer->data_len;
            return buffer;
        }
    }
    ++strangers_;
    return nullptr;
}

rte_mbuf* EthernetCard::copyOf(std::span<const std::uint8_t> bytes) {
    rte_mbuf* const buffer = rte_pktmbuf_alloc(pool_);
    char* const room = buffer == nullptr || bytes.size() > UINT16_MAX
                           ? nullptr
                           : rte_pktmbuf_append(buffer, static_cast<std::uint16_t>(bytes.size()));
    if (room == nullptr) {
        rte_pktmbuf_free(buffer);
        return nullptr;
    }
    std::memcpy(room, bytes.data(), bytes.size());
    return buffer;
}

void EthernetCard::append(rte_mbuf* buffer) {
    if (queuedCount_ == most) {
        const Sent sent = flush();
        since_ = {since_.sent + sent.sent, since_.refused + sent.refused};
    }
    queued_[queuedCount_++] = buffer;
}

OvixAgent::Card::Sent EthernetCard::flush() {
    Sent done = std::exchange(since_, {});
    if (queuedCount_ == 0) {
        return done;
    }
    const auto count = static_cast<std::uint16_t>(std::exchange(queuedCount_, 0));
    std::uint16_t sent = 0;
    // A driver may take fewer while its ring is tidied; what is refused twice has no room.
    for (int tries = 0; sent < count && tries < 2; ++tries) {
        sent = static_cast<std::uint16_t>(
            sent + rte_eth_tx_burst(port_, 0, queued_.data() + sent,
                                    static_cast<std::uint16_t>(count - sent)));
    }
    rte_pktmbuf_free_bulk(queued_.data() + sent, static_cast<unsigned int>(count - sent));
    done.sent += sent;
    done.refused += static_cast<std::size_t>(count - sent);
    return done;
}

std::uint64_t EthernetCard::missed() {
    rte_eth_stats stats{};
    return rte_eth_stats_get(port_, &stats) == 0 ? stats.imissed + stats.rx_nombuf + cutUp_
                                                 : cutUp_;
}

} // namespace OvixDpdk
