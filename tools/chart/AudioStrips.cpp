#include "tools/chart/AudioStrips.h"

#include <algorithm>
#include <cmath>

#include "tools/text/Decibels.h"

namespace android {

namespace {

constexpr double kFloorDb = -72.0;

double dbOf(double level) {
    return level > 0.0 ? std::max(decibelsOf(level), kFloorDb) : kFloorDb;
}

/** The columns of the audio that meet each column of the axis. */
std::vector<Envelope::Column> spread(const TimeAxis& axis, const Envelope& audio) {
    std::vector<Envelope::Column> spread(static_cast<size_t>(axis.columnCount()));
    for (size_t i = 0; i < audio.columns().size(); ++i) {
        const double beginSec = static_cast<double>(i) * audio.secondsPerColumn();
        const double end = axis.x(beginSec + audio.secondsPerColumn());
        auto index = static_cast<size_t>(axis.x(beginSec));
        do {
            spread[std::min(index, spread.size() - 1)].merge(audio.columns()[i]);
        } while (static_cast<double>(++index) < end);
    }
    return spread;
}

}  // namespace

AudioStrips::AudioStrips(const TimeAxis& axis, const Envelope& audio, const std::string& whose)
    : mWave(axis, {.kind = "wave",
                   .title = "Waveform " + whose + " (1 is full scale)",
                   .heightPx = 88,
                   .scale = {.low = -1.0, .high = 1.0}}),
      mLevel(axis, {.kind = "level",
                    .title = "Level " + whose + " (dBFS): RMS filled, peak as a line",
                    .heightPx = 72,
                    .scale = {.low = kFloorDb, .high = 0.0}}) {
    mWave.tick(1.0, "1");
    mWave.tick(0.0, "0");
    mWave.tick(-1.0, "-1");
    for (const double db : {0.0, -24.0, -48.0, kFloorDb}) {
        mLevel.tick(db, std::to_string(static_cast<int>(db)));
    }
    Strip::Ranges waves;
    Strip::Ranges powers;
    Strip::Ranges rms;
    Strip::Ranges peaks;
    for (const Envelope::Column& column : spread(axis, audio)) {
        waves.emplace_back();
        powers.emplace_back();
        rms.emplace_back();
        peaks.emplace_back();
        if (column.sampleCount > 0) {
            waves.back().include(column.low, column.high);
            const double rmsDb = dbOf(std::sqrt(column.meanSquare()));
            powers.back().include(kFloorDb, rmsDb);
            rms.back().include(rmsDb, rmsDb);
            peaks.back().include(dbOf(column.peak()), dbOf(column.peak()));
        }
    }
    mWave.ranges("wave", waves);
    mWave.reading("wave", "", 3, waves);
    mLevel.reading("RMS", "dBFS", 1, rms);
    mLevel.reading("peak", "dBFS", 1, peaks);
    mLevel.ranges("rms", powers);
    mLevel.ranges("peak", peaks);
}

}  // namespace android
