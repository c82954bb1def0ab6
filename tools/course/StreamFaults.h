#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/course/Moments.h"

namespace android {

/** What is wrong with a burst stream itself, where and when it was written, in bounded memory: all are
 *  counted, the first few hundred are kept whole. Threads: one at a time. */
class StreamFaults {
public:
    struct Fault {
        double timeSec;       // of the write
        uint64_t burstIndex;  // the burst that shows it; of garbage the one behind it
        uint64_t offset;      // of the stream
        std::string what;
    };

    void add(const Fault& fault) {
        mMoments.add(fault.timeSec, static_cast<double>(fault.burstIndex));
        if (mFirst.size() < kMostKept) {
            mFirst.push_back(fault);
        }
    }

    const std::vector<Fault>& first() const { return mFirst; }
    /** Of all; the values are the bursts' indices. */
    const Moments& moments() const { return mMoments; }
    int64_t count() const { return mMoments.count(); }

private:
    static constexpr size_t kMostKept = 300;

    std::vector<Fault> mFirst;
    Moments mMoments;
};

}  // namespace android
