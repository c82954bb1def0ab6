#pragma once

namespace android {

/** One of the default policy's bounds: the property that sets it, and its value without one. */
struct HwSyncBound {
    const char* property;
    unsigned long defaultMs;

    /** Stores the property's value; without one `valueMs` stays. Text that is not a number counts
     *  as 0, a negative number as a bound that nothing reaches. */
    static void read(const char* property, unsigned long& valueMs);
    /** As the properties say now. */
    unsigned long valueMs() const;
};

inline constexpr HwSyncBound kAudioLeadThreshold{"vendor.audio.hwsync.alead.threshold", 300};
inline constexpr HwSyncBound kAudioLeadUpper{"vendor.audio.hwsync.alead.upper", 1000};
inline constexpr HwSyncBound kVideoLeadThreshold{"vendor.audio.hwsync.vlead.threshold", 100};
inline constexpr HwSyncBound kVideoLeadUpper{"vendor.audio.hwsync.vlead.upper", 1000};

}  // namespace android
