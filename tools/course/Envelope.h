#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace android {

/**
 * The course of audio in bounded memory: of each stretch of frames the lowest and the highest sample
 * of all channels, and the power. When the columns are full, neighbours become one.
 * Threads: one at a time.
 */
class Envelope {
public:
    struct Column {
        float low = 0.0f;  // 1.0 is full scale
        float high = 0.0f;
        double squareSum = 0.0;
        int64_t sampleCount = 0;  // 0: nothing was there

        void merge(const Column& other);
        float peak() const { return high > -low ? high : -low; }
        double meanSquare() const {
            return sampleCount > 0 ? squareSum / static_cast<double>(sampleCount) : 0.0;
        }
    };

    struct Format {
        uint32_t rateHz = 48000;
        uint32_t channelCount = 2;
        uint32_t bits = 16;  // 32: Q4.27
    };

    explicit Envelope(const Format& format);

    /** Interleaved frames behind those before. */
    void add(const void* frames, int64_t frameCount);
    /** The next frames belong there; earlier ones that are missing leave a gap. */
    void seek(int64_t frame) { mNextFrame = frame; }

    int64_t nextFrame() const { return mNextFrame; }
    const std::vector<Column>& columns() const { return mColumns; }
    double secondsPerColumn() const {
        return static_cast<double>(mFramesPerColumn) / mFormat.rateHz;
    }

private:
    static constexpr size_t kMaxColumns = 2048;

    template <typename Sample>
    static Column columnOf(const Sample* samples, int64_t sampleCount, float fullScale);
    Column& columnAt(int64_t frame);
    void halve();

    const Format mFormat;
    int64_t mFramesPerColumn = 32;
    int64_t mNextFrame = 0;  // those below 0 are not kept
    std::vector<Column> mColumns;
};

}  // namespace android
