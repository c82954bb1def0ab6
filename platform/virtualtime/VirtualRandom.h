#pragma once

#include <cstdint>

namespace android {

/** Numbers from a seed, the same everywhere: splitmix64 (Steele, Lea and Flood, OOPSLA 2014). */
class VirtualRandom {
public:
    explicit VirtualRandom(uint64_t seed) : mState(seed) {}

    uint64_t next() {
        mState += 0x9e3779b97f4a7c15U;
        uint64_t mixed = mState;
        mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9U;
        mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111ebU;
        return mixed ^ (mixed >> 31);
    }
    /** 0 to `bound` - 1; 0 for 0. Its bias of bound / 2^32 does not matter here. */
    uint64_t below(uint64_t bound) {
        return bound < UINT32_MAX ? ((next() >> 32) * bound) >> 32 : next() % bound;
    }
    bool happens(uint32_t inAMillion) { return inAMillion != 0 && below(1'000'000) < inAMillion; }

private:
    uint64_t mState;
};

}  // namespace android
