// Key-value strings and properties of any content: AudioParameter reads the same as a plain model,
// and the policy decides within the bounds that its properties set.

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <string>

#include "cutils/properties.h"
#include "fuzz/support/Fuzzing.h"
#include "hwsync/HwSyncDefaultPolicy.h"
#include "media/AudioParameter.h"
#include "utils/Errors.h"

using namespace android;

namespace {

/** A whole decimal int with an optional sign. */
std::optional<int> wholeInt(const std::string& text) {
    const size_t digits = text.find_first_of("0123456789");
    const bool isSigned = digits == 1 && (text[0] == '-' || text[0] == '+');
    if ((digits != 0 && !isSigned) ||
        text.find_first_not_of("0123456789", digits) != std::string::npos) {
        return {};
    }
    errno = 0;
    const long value = strtol(text.c_str(), nullptr, 10);
    return errno == 0 && value == static_cast<int>(value) ? std::optional(static_cast<int>(value))
                                                          : std::nullopt;
}

/** The last pair of the key counts; `value` keeps the last good one. A key ends at the first '=',
 *  so a key that contains it is never found. */
std::optional<int> model(const std::string& pairs, const std::string& key) {
    std::optional<int> found;
    for (size_t begin = 0; begin <= pairs.size();) {
        const size_t end = std::min(pairs.find(';', begin), pairs.size());
        const std::string pair = pairs.substr(begin, end - begin);
        if (pair.find('=') == key.size() && pair.rfind(key, 0) == 0) {
            found = wholeInt(pair.substr(key.size() + 1));
        }
        begin = end + 1;
    }
    return found;
}

/** The property's value in ms, as the policy compares it: a negative one is never reached. */
uint64_t boundMs(const char* name, uint64_t defaultMs) {
    char value[PROPERTY_VALUE_MAX] = {};
    const int length = property_get(name, value, nullptr);
    return length < 1 ? defaultMs
                      : static_cast<uint64_t>(
                            static_cast<int64_t>(static_cast<int>(strtol(value, nullptr, 10))));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t byteCount) {
    FuzzedDataProvider data(bytes, byteCount);
    static constexpr const char* kBounds[] = {
        "vendor.audio.hwsync.alead.threshold", "vendor.audio.hwsync.alead.upper",
        "vendor.audio.hwsync.vlead.threshold", "vendor.audio.hwsync.vlead.upper"};
    for (const char* name : kBounds) {
        const std::string value = data.ConsumeBool()
                                      ? std::to_string(data.ConsumeIntegralInRange(-2, 2000))
                                      : data.ConsumeRandomLengthString(100);
        const bool fits = std::string(value.c_str()).size() < PROPERTY_VALUE_MAX;
        FUZZ_EXPECT((property_set(name, value.c_str()) == 0) == fits);
    }
    HwSyncDefaultPolicy policy;
    const uint64_t latencyMs = data.ConsumeIntegralInRange<uint64_t>(0, 500);
    policy.setLatency(latencyMs * 1'000'000);
    for (int i = 0; i < 8 && data.remaining_bytes() > 0; ++i) {
        const auto ptsMs = data.ConsumeIntegralInRange<uint64_t>(500, 4000);
        const auto clockMs = data.ConsumeIntegralInRange<uint64_t>(500, 4000);
        long durationMs = -1;
        const int decision = policy.determine(ptsMs * 1'000'000, clockMs * 1'000'000, durationMs);
        const uint64_t lead = ptsMs > clockMs ? ptsMs - clockMs : clockMs - ptsMs;
        const bool audioLeads = ptsMs > clockMs;
        const uint64_t threshold = boundMs(kBounds[audioLeads ? 0 : 2], audioLeads ? 300 : 100);
        const uint64_t upper = boundMs(kBounds[audioLeads ? 1 : 3], 1000);
        int expected = HW_SYNC_DECISION_NONE;
        const bool isPending = i == 0 && latencyMs > 0;
        if (isPending || lead > upper) {
            expected = HW_SYNC_DECISION_ANCHOR;
        } else if (lead > threshold) {
            expected = audioLeads ? HW_SYNC_DECISION_FILL : HW_SYNC_DECISION_DROP;
        }
        FUZZ_EXPECT(decision == expected);
        const bool corrects =
            decision == HW_SYNC_DECISION_FILL || decision == HW_SYNC_DECISION_DROP;
        FUZZ_EXPECT(durationMs == (corrects ? static_cast<long>(lead) : -1));
    }
    const std::string key = data.ConsumeBool() ? "hw_av_sync" : data.ConsumeRandomLengthString(8);
    std::string pairs = data.ConsumeRemainingBytesAsString();
    pairs = pairs.c_str();
    int value = 0;
    const bool isFound =
        AudioParameter(String8(pairs.c_str())).getInt(String8(key.c_str()), value) == OK;
    const std::optional<int> expected = model(pairs, key.c_str());
    FUZZ_EXPECT(isFound == expected.has_value());
    FUZZ_EXPECT(!isFound || value == *expected);
    return 0;
}
