#include "tools/report/MixJson.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "tools/process/ToolError.h"
#include "tools/text/Decibels.h"
#include "tools/text/PrintTo.h"

namespace android {

namespace {

using Json = nlohmann::ordered_json;

constexpr double kNsPerSec = 1e9;

/** Null for silence, of which JSON can't say the decibels. */
Json dbfsOf(double level) {
    return level > 0.0 ? Json(decibelsOf(level)) : Json();
}

Json textOrNull(const std::string& text) {
    return text.empty() ? Json() : Json(text);
}

Json stretchesOf(const Overload& overload) {
    Json stretches = Json::array();
    for (const Overload::Stretch& stretch : overload.stretches()) {
        stretches.push_back(
            {{"begin_ns", std::llround(overload.secondsOf(stretch.beginFrame) * kNsPerSec)},
             {"end_ns", std::llround(overload.secondsOf(stretch.endFrame) * kNsPerSec)},
             {"samples", stretch.sampleCount}});
    }
    return stretches;
}

Json jsonOf(const MixInput& input, const FeedBoard::Input& state, const MixCycle& cycle,
            const MixLevels& mixLevels, size_t index) {
    Json gainChanges = Json::array();
    for (const GainChange& change : input.spec.gainChanges) {
        gainChanges.push_back({{"time_ns", std::llround(change.timeSec * kNsPerSec)},
                               {"gain", change.gain * input.spec.boost}});
    }
    return {{"file", input.spec.path},
            {"description", input.reader->describe()},
            {"rate_hz", input.reader->rateHz()},
            {"channels", input.reader->channelCount()},
            {"gain", input.spec.gain * input.spec.boost},
            {"balance", input.spec.balance},
            {"gain_changes", gainChanges},
            {"start_ns", std::llround(input.spec.startSec * kNsPerSec)},
            {"written_frames", input.audioFramesOf(state.writtenFrames)},
            {"heard_frames", cycle.heardFrames(index)},
            {"max_lost_frames", cycle.maxLostFrames(index)},
            {"short_writes", state.shortWriteCount},
            {"short_blocks", cycle.shortenedCount(index)},
            {"late_count", cycle.lateness(index).count},
            {"late_ns", cycle.lateness(index).total.count()},
            {"late_longest_ns", cycle.lateness(index).longest.count()},
            {"peak_dbfs", dbfsOf(input.peak())},
            {"clipped_samples", mixLevels.heldCount(input, index)}};
}

}  // namespace

void MixJson::print(std::chrono::nanoseconds elapsed) const {
    const MixCycle& cycle = mSession.cycle();
    const Levels levels = mMix.meter().total();
    const double audioSec = static_cast<double>(levels.frameCount) / mTarget.rateHz;
    Json document;
    document["inputs"] = Json::array();
    for (size_t index = 0; index < mInputs.size(); ++index) {
        document["inputs"].push_back(
            jsonOf(*mInputs[index], mSession.board().input(index), cycle, mLevels, index));
    }
    document["output"] = {
        {"file", textOrNull(mTarget.path)},
        {"device", textOrNull(mTarget.device)},
        {"rate_hz", mTarget.rateHz},
        {"channels", Levels::kChannels},
        {"bits", mTarget.bits},
        {"float", mTarget.isFloat},
        {"headroom_db", mTarget.headroomDb},
        {"normalized_db", mTarget.isNormalized ? Json(mMix.normalizingDb()) : Json()}};
    document["summary"] = {
        {"frames", levels.frameCount},
        {"duration_ns", std::llround(audioSec * kNsPerSec)},
        {"blocks", cycle.blockCount()},
        {"short_blocks", cycle.shortBlockCount()},
        {"peak_dbfs", dbfsOf(mLevels.peak(levels.peak()))},
        {"rms_dbfs", dbfsOf(levels.rms())},
        {"clipped_samples", mLevels.clippedCount()},
        {"wrapped_samples", mLevels.wrappedCount()},
        {"unchecked_samples", mLevels.uncheckedCount()},
        {"over_full_scale", stretchesOf(mLevels.overload())},
        {"excess_db", mLevels.overload().excessDb()},
        {"underruns", mMix.underrunCount()},
        {"elapsed_ns", elapsed.count()},
        {"speed", audioSec * kNsPerSec / std::max(static_cast<double>(elapsed.count()), 1e3)}};
    // File names may hold any bytes.
    printTo(stdout, "{}\n", document.dump(1, ' ', false, Json::error_handler_t::replace));
    if (fflush(stdout) != 0 || ferror(stdout)) {
        throw ToolError("standard output: writing failed; make room or choose another place");
    }
}

}  // namespace android
