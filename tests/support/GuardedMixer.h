#pragma once

#include <cstdint>

#include "pipeline/MixerThread.h"
#include "stream/TunnelStream.h"
#include "tests/support/AudioPathGuard.h"

/** A mixer that waits for no lock in its cycles but those on its list. */
class GuardedMixer : public android::MixerThread, private AudioPathGuard::WaitList {
public:
    ~GuardedMixer() override { exit(); }

    void handleConfigEvent() override REQUIRES(mLock) EXCLUDES(mCommandLock) {
        const AudioPathGuard::Cycle cycle(*this);
        MixerThread::handleConfigEvent();
    }
    ssize_t threadLoopProcess_l() override REQUIRES(mLock) {
        const AudioPathGuard::Cycle cycle(*this);
        return MixerThread::threadLoopProcess_l();
    }

private:
    // Asked on the worker, which holds mLock.
    bool mayWaitFor(const void* mutex) const override NO_THREAD_SAFETY_ANALYSIS {
        for (const auto& stream : mStreams) {
            // A stream's chain: config() holds it for the exchange of two chains, flush(), close()
            // and read() for a pass over the buffers, and no longer. A tunnel stream's latency:
            // held while policy and bridge are told, in one order.
            const bool isTunnel = dynamic_cast<android::TunnelStream*>(stream.get()) != nullptr;
            if (liesIn(stream.get(),
                       isTunnel ? sizeof(android::TunnelStream) : sizeof(android::AudioStream),
                       mutex)) {
                return true;
            }
        }
        return false;
    }
    static bool liesIn(const void* object, size_t byteCount, const void* address) {
        const auto offset =
            reinterpret_cast<uintptr_t>(address) - reinterpret_cast<uintptr_t>(object);
        return offset < byteCount;
    }
};
