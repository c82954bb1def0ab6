#pragma once

#include <algorithm>
#include <string>

#include "tests/support/Bursts.h"

struct BurstEvent {
    int mode;
    uint64_t byteCount;
    uint64_t ptsNs;
    Bytes payload;  // as much as came

    bool operator==(const BurstEvent& other) const = default;
};

// The expected events of a stream, computed from all its bytes at once. Each run() starts a new
// search; only the count of skipped bytes goes on.
struct BurstModel {
    std::vector<BurstEvent> events;
    std::vector<std::string> garbageLog;
    std::vector<std::string> faultLog;
    uint64_t skipped = 0;

    void run(Bytes rest) {
        while (!rest.empty()) {
            size_t done = 1;
            if (begins(rest, {0x55, 0x55, 0, 2}) || begins(rest, {0x66, 0x66, 0, 2})) {
                done = rest.size() < 4 ? rest.size() : burst(rest);
            } else if (skipped++ == 0) {
                garbageLog.push_back("startRecordGarbage, garbage data is received");
            }
            rest.erase(rest.begin(), rest.begin() + static_cast<ptrdiff_t>(done));
        }
    }

private:
    // Whether the shorter one begins the longer one.
    static bool begins(const Bytes& bytes, const Bytes& magic) {
        const size_t common = std::min(magic.size(), bytes.size());
        return std::equal(bytes.data(), bytes.data() + common, magic.data());
    }
    static uint64_t number(const uint8_t* bytes, size_t byteCount) {
        return byteCount == 0 ? 0 : number(bytes, byteCount - 1) * 256 + bytes[byteCount - 1];
    }

    // The bytes that belong to the burst at the beginning of `rest`.
    size_t burst(const Bytes& rest) {
        if (skipped > 0) {
            garbageLog.push_back("stopRecordGarbage, parser is back to normal, totally " +
                                 std::to_string(skipped) + " garbage bytes are received");
        }
        skipped = 0;
        if (rest.size() < 20) {
            return rest.size();
        }
        const uint64_t offset = number(&rest[16], 4);
        const uint64_t announced = number(&rest[4], 4);
        const uint64_t ptsNs = number(&rest[8], 8);
        if (offset < 20) {
            faultLog.push_back("parse, the payload offset(" + std::to_string(offset) +
                               ") is invalid ");
        }
        if (offset > 65536 || announced > 16777216) {
            faultLog.push_back("parse, the header looks corrupt: payload offset " +
                               std::to_string(offset) + ", burst size " +
                               std::to_string(announced) + ", timestamp " + std::to_string(ptsNs));
        }
        const uint64_t payload = std::max<uint64_t>(offset, 20);
        if (rest.size() < payload) {
            return rest.size();
        }
        events.push_back({rest[0] == 0x66 ? 1 : 0, announced, ptsNs, {}});
        const uint64_t end = std::min<uint64_t>(rest.size(), payload + announced);
        if (announced >= 1ULL << 31 && end > payload) {
            faultLog.push_back("getAvailableBufferLength_l, abnormal burst length, mBurstSize " +
                               std::to_string(static_cast<int64_t>(announced) - (1LL << 32)) +
                               ", mPayloadLength 0");
            return payload;
        }
        events.back().payload.assign(rest.data() + payload, rest.data() + end);
        return end;
    }
};
