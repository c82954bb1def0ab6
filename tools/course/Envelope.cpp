#include "tools/course/Envelope.h"

#include <algorithm>

#include "tools/course/ColumnPairs.h"

namespace android {

void Envelope::Column::merge(const Column& other) {
    if (other.sampleCount == 0) {
        return;
    }
    low = sampleCount > 0 ? std::min(low, other.low) : other.low;
    high = sampleCount > 0 ? std::max(high, other.high) : other.high;
    squareSum += other.squareSum;
    sampleCount += other.sampleCount;
}

Envelope::Envelope(const Format& format) : mFormat(format) {
    mColumns.reserve(kMaxColumns);
}

void Envelope::add(const void* frames, int64_t frameCount) {
    const int64_t skipped = std::clamp<int64_t>(-mNextFrame, 0, frameCount);
    mNextFrame += skipped;
    for (int64_t done = skipped; done < frameCount;) {
        Column& column = columnAt(mNextFrame);
        const int64_t room = mFramesPerColumn - mNextFrame % mFramesPerColumn;
        const int64_t piece = std::min(room, frameCount - done);
        const int64_t first = done * mFormat.channelCount;
        const int64_t count = piece * mFormat.channelCount;
        if (mFormat.bits == 16) {
            column.merge(columnOf(static_cast<const int16_t*>(frames) + first, count, 32768.0f));
        } else {
            column.merge(
                columnOf(static_cast<const int32_t*>(frames) + first, count, 134217728.0f));
        }
        mNextFrame += piece;
        done += piece;
    }
}

template <typename Sample>
Envelope::Column Envelope::columnOf(const Sample* samples, int64_t sampleCount, float fullScale) {
    Sample low = samples[0];
    Sample high = samples[0];
    double squareSum = 0.0;
    for (int64_t i = 0; i < sampleCount; ++i) {
        low = std::min(low, samples[i]);
        high = std::max(high, samples[i]);
        squareSum += static_cast<double>(samples[i]) * static_cast<double>(samples[i]);
    }
    return {.low = static_cast<float>(low) / fullScale,
            .high = static_cast<float>(high) / fullScale,
            .squareSum = squareSum / (double{fullScale} * double{fullScale}),
            .sampleCount = sampleCount};
}

Envelope::Column& Envelope::columnAt(int64_t frame) {
    while (frame / mFramesPerColumn >= static_cast<int64_t>(kMaxColumns)) {
        halve();
    }
    const auto index = static_cast<size_t>(frame / mFramesPerColumn);
    if (index >= mColumns.size()) {
        mColumns.resize(index + 1);
    }
    return mColumns[index];
}

void Envelope::halve() {
    mergePairs(mColumns);
    mFramesPerColumn *= 2;
}

}  // namespace android
