#pragma once

#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "tools/audio/FrameSource.h"
#include "tools/course/InputTrack.h"
#include "tools/host/Library.h"
#include "tools/mix/FeedBoard.h"
#include "tools/mix/SumVoice.h"

namespace android {

/**
 * Keeps one stream filled: decodes its input and writes it, then writes silence as the mix asks.
 * Threads: the stream is written by one at a time, who calls fill(), or a thread of the feeder's own
 * from start() on.
 */
class Feeder {
public:
    struct Target {
        size_t index;  // on the board
        std::string name;
        audio_proxy_stream_t* stream;
        InputTrack* track = nullptr;  // for the report
        SumVoice* sum = nullptr;      // of a 16-bit mix
    };

    Feeder(const Library& library, FeedBoard& board, FrameSource& source, const Handover& handover,
           const Target& target);
    ~Feeder();  // joins
    Feeder(const Feeder&) = delete;
    Feeder& operator=(const Feeder&) = delete;

    /** Writes until `frameCount` frames are in the stream, which must fit its buffer, or the mix
     *  ends. Throws. */
    void fill(int64_t frameCount);
    void start();
    /** Waits for the thread; ends within one write of the board's end. */
    void join();

private:
    void run();
    /** Writes the next frames, at most `maxFrames`: audio, then silence; how many. */
    int64_t writeSome(int64_t maxFrames);
    /** The next audio into the empty chunk; false: there is none. */
    bool decode();
    int64_t write(const uint8_t* audio, int64_t frameCount);

    const Library& mLibrary;
    FeedBoard& mBoard;
    FrameSource& mSource;
    const Handover& mHandover;
    const Target mTarget;
    std::vector<uint8_t> mChunk;  // decoded at once
    int64_t mChunkFrames = 0;     // in it
    int64_t mFramesUsed = 0;      // of them
    bool mHasAudio = true;
    bool mHasWrittenShort = false;
    int64_t mWrittenFrames = 0;
    std::thread mThread;
};

}  // namespace android
