#include "FastPath/SelfCheck.h"

#include <algorithm>
#include <fmt/format.h>

#include "Lumo/MplsLabel.h"
#include "Wire/Ethernet.h"
#include "Wire/LabelStack.h"

namespace OvixAgent {

namespace {

std::string hexOf(Wire::Bytes bytes) {
    constexpr std::size_t most = 128;
    std::string text;
    for (const std::uint8_t byte : bytes.first(std::min(bytes.size(), most))) {
        text += fmt::format("{:02x}", byte);
    }
    return bytes.size() > most ? text + "..." : text;
}

} // namespace

bool SelfCheck::Sent::operator==(const Sent& other) const {
    return port == other.port && bytes == other.bytes && frame.port == other.frame.port &&
           frame.time == other.frame.time && frame.originalLength == other.frame.originalLength;
}

bool SelfCheck::LabelCount::operator==(const LabelCount& other) const {
    return label == other.label && exists == other.exists &&
           counter.packets() == other.counter.packets() && counter.bytes() == other.counter.bytes();
}

class SelfCheck::Watch : public TransmitPort {
  public:
    Watch(TransmitPort* real, PortIndex port, bool isTrial, std::vector<Sent>& sent) noexcept
        : real_(real), port_(port), isTrial_(isTrial), sent_(&sent) {}

    void transmit(const Frame& frame) override {
        sent_->push_back({port_, frame, {frame.bytes.begin(), frame.bytes.end()}});
        if (!isTrial_) {
            real_->transmit(frame);
        }
    }
    TransmitPort* real() const noexcept { return real_; }

  private:
    TransmitPort* real_;
    PortIndex port_;
    bool isTrial_;
    std::vector<Sent>* sent_;
};

/// Stand between all ports and their links while they live.
class SelfCheck::Watches {
  public:
    Watches(std::vector<Port>& ports, bool isTrial, std::vector<Sent>& sent) : ports_(&ports) {
        for (PortIndex i = 0; i < ports.size(); ++i) {
            watches_.push_back(std::make_unique<Watch>(ports[i].out, i, isTrial, sent));
            ports[i].out = ports[i].out != nullptr ? watches_.back().get() : nullptr;
        }
    }
    Watches(const Watches&) = delete;
    Watches& operator=(const Watches&) = delete;
    ~Watches() {
        for (PortIndex i = 0; i < watches_.size(); ++i) {
            (*ports_)[i].out = watches_[i]->real();
        }
    }

  private:
    std::vector<Port>* ports_;
    std::vector<std::unique_ptr<Watch>> watches_;
};

WritableFrame SelfCheck::copyOf(const WritableFrame& frame) {
    memory_.assign(frame.bytes - frame.headroom, frame.bytes + frame.size);
    WritableFrame copy = frame;
    copy.bytes = memory_.data() + frame.headroom;
    return copy;
}

/// The labels whose counters a frame may count in: all that could be labels behind the link header.
void SelfCheck::findLabels(Wire::Bytes frame) {
    labels_.clear();
    Wire::LabelWalk walk(frame.subspan(Wire::linkLength(frame)));
    for (Lumo::MplsLabelEntry entry; walk.next(entry);) {
        labels_.push_back(entry.label().value());
    }
}

SelfCheck::Counts SelfCheck::count(const Counter::OvixLfibCounterCollection* labels) const {
    Counts counts;
    counts.accounts = accounts_->counts();
    for (const Port& port : tables_->ports.ports()) {
        counts.traffic.push_back(port.sent);
    }
    for (const Pseudowire& pseudowire : tables_->pseudowires.all()) {
        counts.traffic.push_back(pseudowire.sent);
        counts.traffic.push_back(pseudowire.delivered);
    }
    for (const std::uint32_t label : labels_) {
        const auto key = Mpls::RouteKey::fromLabel(Lumo::MplsLabel(label));
        const Counter::PktCounter* const counter =
            labels != nullptr ? labels->counter(key) : nullptr;
        counts.labels.push_back(
            {label, counter != nullptr, counter != nullptr ? *counter : Counter::PktCounter()});
    }
    return counts;
}

void SelfCheck::setBack(const Counts& counts, Counter::OvixLfibCounterCollection* labels) {
    accounts_->setBack(counts.accounts);
    auto traffic = counts.traffic.begin();
    for (Port& port : tables_->ports.ports()) {
        port.sent = *traffic++;
    }
    for (Pseudowire& pseudowire : tables_->pseudowires.all()) {
        pseudowire.sent = *traffic++;
        pseudowire.delivered = *traffic++;
    }
    for (const LabelCount& one : counts.labels) {
        const auto key = Mpls::RouteKey::fromLabel(Lumo::MplsLabel(one.label));
        if (one.exists) {
            labels->counterCollectionIs(key) = one.counter;
        } else if (labels != nullptr) {
            labels->counterCollectionDel(key);
        }
    }
}

SelfCheck::Result SelfCheck::run(const WritableFrame& frame, const Trial& trial,
                                 const Definition& definition,
                                 const Ptr<Counter::OvixLfibCounterCollection>& labels) {
    WritableFrame copy = copyOf(frame);
    findLabels({frame.bytes, frame.size});
    const Counts before = count(labels.get());
    Outcome tried;
    bool isTried = false;
    {
        const Watches watches(tables_->ports.ports(), true, tried.sent);
        isTried = trial(copy);
    }
    tried.counts = count(labels.get());
    setBack(before, labels.get());
    Outcome right;
    {
        const Watches watches(tables_->ports.ports(), false, right.sent);
        definition();
    }
    right.counts = count(labels.get());
    if (isTried && tried != right) {
        describe(frame, tried, right);
    }
    return !isTried ? Result::untried : tried == right ? Result::same : Result::different;
}

void SelfCheck::describe(const WritableFrame& frame, const Outcome& tried, const Outcome& right) {
    const auto namesOf = [&](const std::vector<Sent>& sent) {
        std::string text;
        for (const Sent& one : sent) {
            text += fmt::format(" {} {}", tables_->ports.ports()[one.port].name, hexOf(one.bytes));
        }
        return text.empty() ? std::string(" nothing") : text;
    };
    difference_ = fmt::format(
        "a frame of {} bytes at port {} ({}) would have left by decision as{}, and is forwarded "
        "as{}{}",
        frame.size, tables_->ports.ports()[frame.port].name, hexOf({frame.bytes, frame.size}),
        namesOf(tried.sent), namesOf(right.sent),
        tried.counts == right.counts ? "" : "; the counters differ");
}

} // namespace OvixAgent
