#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

using Bytes = std::vector<uint8_t>;

inline void append(Bytes& bytes, const Bytes& more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

inline void appendBigEndian(Bytes& bytes, uint64_t value, size_t byteCount) {
    while (byteCount-- > 0) {
        bytes.push_back(static_cast<uint8_t>(value >> (8 * byteCount)));
    }
}

/** A header of version 2 as it goes over the wire; the extension only of offsets below 4096. */
struct Header {
    uint64_t ptsNs = 0;
    uint32_t burstByteCount = 0;
    uint32_t magic = 0x55550002;
    uint32_t payloadOffset = 20;

    Bytes bytes() const {
        Bytes wire;
        appendBigEndian(wire, magic, 4);
        appendBigEndian(wire, burstByteCount, 4);
        appendBigEndian(wire, ptsNs, 8);
        appendBigEndian(wire, payloadOffset, 4);
        wire.resize(payloadOffset > 20 && payloadOffset < 4096 ? payloadOffset : 20, 0x55);
        return wire;
    }
};

/** A whole burst; the header's burst size is the payload's. */
inline Bytes makeBurst(Header header, const Bytes& payload) {
    header.burstByteCount = static_cast<uint32_t>(payload.size());
    Bytes burst = header.bytes();
    append(burst, payload);
    return burst;
}
