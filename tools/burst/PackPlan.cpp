#include "tools/burst/PackPlan.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>

#include "tools/process/ToolError.h"

namespace android {

namespace {

int64_t nsOf(int64_t frameCount, int64_t rateHz) {
    return frameCount / rateHz * 1'000'000'000 + frameCount % rateHz * 1'000'000'000 / rateHz;
}

bool isInside(const std::vector<TimeSpan>& spans, int64_t timeNs) {
    return std::any_of(spans.begin(), spans.end(),
                       [timeNs](const TimeSpan& span) { return span.holds(timeNs); });
}

}  // namespace

bool PackPlan::Config::hasBurstIn(const TimeSpan& span) const {
    for (int64_t frame = 0; frame < frameCount; frame += burstFrameCount) {
        if (span.holds(nsOf(frame, rateHz))) {
            return true;
        }
    }
    return false;
}

PackPlan::PackPlan(const Config& config, SeededRandom& random) {
    lay(config, random);
    if (mItems.empty()) {
        throw ToolError(config.frameCount > 0
                            ? "--gap: the gaps leave no audio to pack; make them shorter"
                            : "--length: leaves nothing to pack; make it longer",
                        EXIT_USAGE);
    }
    strew(config.wishes, random);
}

void PackPlan::lay(const Config& config, SeededRandom& random) {
    for (int64_t frame = 0; frame < config.frameCount; frame += config.burstFrameCount) {
        const int64_t timeNs = nsOf(frame, config.rateHz);
        const int64_t jitterNs =
            config.jitterNs > 0 ? random.between(-config.jitterNs, config.jitterNs) : 0;
        // A gap leaves out whole bursts: those that begin inside it.
        if (isInside(config.gaps, timeNs)) {
            continue;
        }
        const int64_t ptsNs = std::max<int64_t>(config.firstPtsNs + timeNs + jitterNs, 0);
        mItems.push_back({.beginFrame = frame,
                          .frameCount = std::min(config.burstFrameCount, config.frameCount - frame),
                          .ptsNs = static_cast<uint64_t>(ptsNs),
                          .isFreeRun = isInside(config.freeRuns, timeNs),
                          .fault = Fault::NONE});
    }
}

void PackPlan::strew(const std::vector<FaultWish>& wishes, SeededRandom& random) {
    // A fault may damage the next burst too, and shows in that burst's timestamp. Two sound bursts
    // between faults, before the first and after the last, keep the faults apart.
    constexpr size_t kDistance = 3;
    std::vector<size_t> places;
    for (size_t place = kDistance; place + kDistance < mItems.size(); place += kDistance) {
        places.push_back(place);
    }
    for (const FaultWish& wish : wishes) {
        for (int64_t i = 0; i < wish.count; ++i) {
            if (places.empty()) {
                throw ToolError(fmt::format("--fault: {} bursts have no place for so many faults; "
                                            "ask for fewer, or make the bursts shorter",
                                            mItems.size()),
                                EXIT_USAGE);
            }
            const auto at = random.between(0, static_cast<int64_t>(places.size()) - 1);
            mItems[places[static_cast<size_t>(at)]].fault = wish.fault;
            places.erase(places.begin() + at);
        }
    }
}

}  // namespace android
