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

/// The bytes at the end of a refusal, as they would read if those at its place were skipped.
inline bool namesItsBytes(const std::string& refusal, const Bytes& bytes) {
    const std::size_t at = std::stoul(refusal.substr(std::string("at byte ").size()));
    const char* const colon = std::strrchr(refusal.c_str(), ':');
    const std::string hex = colon != nullptr ? colon : "";
    const std::size_t size = hex.size() / 3;
    return size > 0 && at <= bytes.size() && size <= bytes.size() - at &&
           OvixFpm::skipped(at, OvixFpm::Bytes(bytes).subspan(at, size), "").what ==
               "at byte " + std::to_string(at) + ": " + hex;
}

/// What is wrong with the events of bytes that may be anything; empty when nothing is. A refusal
/// names its own bytes from its place, events and counts agree, and each reads as a line.
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
            ++(*event ? changes : refusals);
            if (!*event && !namesItsBytes(event->refused().what, bytes)) {
                return "bytes that are not there: " + event->refused().what;
            }
        }
    }
    const auto& counts = decoder.counts();
    return counts.refused == refusals && counts.newRoutes + counts.withdrawals == changes
               ? ""
               : "events and counts differ";
}

} // namespace TestSupport::Fpm
