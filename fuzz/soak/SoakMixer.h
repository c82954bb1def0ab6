#pragma once

#include <algorithm>
#include <vector>

#include "fuzz/soak/SoakCheck.h"
#include "pipeline/MixerThread.h"

/** A mixer that knows, of each cycle, what every stream delivered and how much was committed. */
class SoakMixer : public android::MixerThread {
public:
    explicit SoakMixer(SoakLedger& ledger) : mLedger(ledger) {}

    /** Of a followed stream in this cycle; worker. */
    void note(size_t frameCount) { mDelivered.push_back(frameCount); }

protected:
    ssize_t threadLoopProcess_l() override REQUIRES(mLock) {
        mDelivered.clear();
        const ssize_t committed = MixerThread::threadLoopProcess_l();
        const size_t kept = static_cast<size_t>(std::max<ssize_t>(committed, 0));
        for (const size_t frameCount : mDelivered) {
            mLedger.delivered += std::min(frameCount, kept);
            mLedger.discarded += frameCount - std::min(frameCount, kept);
        }
        mLedger.cycles += 1;
        return committed;
    }

private:
    SoakLedger& mLedger;
    std::vector<size_t> mDelivered;  // worker
};
