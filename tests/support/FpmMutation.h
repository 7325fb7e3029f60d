#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "FpmBytes.h"
#include "FpmEvents.h"
#include "FpmRecordings.h"

namespace TestSupport::Fpm {

/// A recorded message by itself, and where it stands in its recording.
struct RecordedMessage {
    std::string recording;
    std::size_t frameAt = 0;
    std::size_t at = 0;
    Bytes bytes;
};

/// Every message of a recording, found by the lengths alone, which are right.
inline std::vector<RecordedMessage> messagesOf(const std::string& recording) {
    const Bytes bytes = recorded(recording);
    std::vector<RecordedMessage> messages;
    for (std::size_t frameAt = 0; frameAt + 4 <= bytes.size();) {
        const std::size_t end = frameAt + bytes[frameAt + 2] * 256U + bytes[frameAt + 3];
        for (std::size_t at = frameAt + 4; at < end;) {
            std::uint32_t length = 0;
            std::memcpy(&length, bytes.data() + at, sizeof length);
            const auto from = bytes.begin() + static_cast<std::ptrdiff_t>(at);
            messages.push_back({recording, frameAt, at, Bytes(from, from + length)});
            at += (length + 3) / 4 * 4;
        }
        frameAt = end;
    }
    return messages;
}

/// What is wrong with the events of bytes that may be anything; empty when nothing is. What is
/// refused is refused with its own bytes from its place, events and counts agree, and each reads as
/// a line.
inline std::string wrongWith(const Bytes& bytes, std::size_t piece = 65536) {
    OvixFpm::FpmDecoder decoder;
    std::uint64_t refusals = 0;
    std::uint64_t changes = 0;
    for (std::size_t at = 0; at < bytes.size(); at += piece) {
        decoder.take(OvixFpm::Bytes(bytes).subspan(at, std::min(piece, bytes.size() - at)));
        while (const auto event = decoder.next()) {
            if (line(*event).empty()) {
                return "an event without text";
            }
            const auto* refused = std::get_if<OvixFpm::Refused>(&*event);
            changes += refused == nullptr ? 1U : 0U;
            refusals += refused != nullptr ? 1U : 0U;
            if (refused == nullptr) {
                continue;
            }
            const std::size_t left = bytes.size() - std::min(bytes.size(), refused->offset());
            if (refused->bytes().empty() || refused->bytes().size() > left ||
                !std::equal(refused->bytes().begin(), refused->bytes().end(),
                            bytes.begin() + static_cast<std::ptrdiff_t>(refused->offset()))) {
                return "bytes that are not there: " + refused->text();
            }
        }
    }
    const auto& counts = decoder.counts();
    return counts.refused == refusals && counts.newRoutes + counts.withdrawals == changes
               ? ""
               : "events and counts differ";
}

} // namespace TestSupport::Fpm
