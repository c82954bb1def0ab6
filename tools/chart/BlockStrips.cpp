#include "tools/chart/BlockStrips.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace android {

namespace {

/** Whole decades around the times; none lies outside. */
Strip::Scale scaleOf(const BlockTrack& blocks) {
    const double least =
        std::min({blocks.cycles().lowest(), blocks.callbacks().lowest(), blocks.mixing().lowest()});
    const double most = std::max(
        {blocks.cycles().highest(), blocks.callbacks().highest(), blocks.mixing().highest()});
    const double low = std::pow(10.0, std::floor(std::log10(std::max(least, 1e-3))));
    const double high = std::pow(10.0, std::ceil(std::log10(std::max(most, 1e-2))));
    return {.low = low, .high = std::max(high, low * 10), .kind = Strip::Scale::Kind::LOGARITHMIC};
}

}  // namespace

BlockStrips::BlockStrips(const TimeAxis& axis, const BlockTrack& blocks)
    : mAxis(axis),
      mSizes(axis, {.kind = "sizes",
                    .title = "Block sizes (frames)",
                    .heightPx = 64,
                    .scale = {.low = 0.0,
                              .high = 1.1 * std::max(static_cast<double>(blocks.wholeFrames()),
                                                     blocks.frames().highest())}}),
      mTimes(axis, {.kind = "times",
                    .title = "Times of a block (ms, logarithmic): mean as a line, range faint",
                    .heightPx = 150,
                    .scale = scaleOf(blocks)}) {
    drawSizes(blocks);
    drawTimes(blocks);
}

void BlockStrips::drawSizes(const BlockTrack& blocks) {
    mSizes.tick(0.0, "0");
    mSizes.tick(static_cast<double>(blocks.wholeFrames()), std::to_string(blocks.wholeFrames()));
    const Strip::Ranges sizes = Strip::rangesOf(mAxis, blocks.frames());
    mSizes.ranges("blocks", sizes);
    mSizes.reading("block", "frames", 0, sizes);
    const std::string whole = fmt::format(" of {} frames", blocks.wholeFrames());
    mSizes.marks("short", blocks.shortBlocks(), [&whole](const Moments::Column& column) {
        const std::string frames = fmt::format("{:.0f}", column.low);
        const std::string words =
            column.count == 1 ? fmt::format("short block at {:.3f} s: {}", column.firstSec, frames)
                              : fmt::format("{} short blocks{}: {} to {:.0f}", column.count,
                                            Strip::when(column), frames, column.high);
        return Strip::Note{.value = column.low, .tip = words + whole};
    });
}

void BlockStrips::drawTimes(const BlockTrack& blocks) {
    const Strip::Scale scale = scaleOf(blocks);
    for (double ms = scale.low; ms < scale.high * 1.5; ms *= 10) {
        mTimes.tick(ms, fmt::format("{:.10g}", ms));
    }
    mTimes.course("cycle", blocks.cycles());
    mTimes.course("callback", blocks.callbacks());
    mTimes.course("mixing", blocks.mixing());
    mTimes.reading("cycle", "ms", 3, Strip::rangesOf(mAxis, blocks.cycles()));
    mTimes.reading("callback", "ms", 3, Strip::rangesOf(mAxis, blocks.callbacks()));
    mTimes.reading("mixing", "ms", 3, Strip::rangesOf(mAxis, blocks.mixing()));
}

std::string BlockStrips::html() const {
    return mSizes.html() +
           "<p class=\"key\"><span><i class=\"swatch blocks\"></i>frames in a block</span> "
           "<span><i class=\"mark short\"></i>short block</span></p>\n" +
           mTimes.html() +
           "<p class=\"key\"><span><i class=\"swatch cycle\"></i>cycle: from one callback to the "
           "next</span> <span><i class=\"swatch callback\"></i>callback: the host writes, waits "
           "for inputs and for its time</span> <span><i class=\"swatch mixing\"></i>mixing: the "
           "library, from a callback's return to the next</span></p>\n";
}

}  // namespace android
