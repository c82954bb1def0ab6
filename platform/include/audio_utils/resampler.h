/**
 * Sample-rate conversion of interleaved 16-bit PCM.
 *
 * A polyphase windowed-sinc filter with 64 taps in the slower rate's time (see J. O. Smith,
 * "Digital Audio Resampling", and Kaiser's window), flat to 0.85 of the lower Nyquist frequency
 * when the rate is raised, to 0.8 when it is lowered. Rates and the phase are exact: the n-th
 * output frame stands at input time n * inRate / outRate, less a constant latency of at most 40
 * frames of the slower rate, for ever. Equal rates are filtered like any others.
 */
#pragma once

#include <stddef.h>
#include <stdint.h>

/** The most input that a converter holds back, in frames of the slower rate. */
enum { RESAMPLER_MAX_HELD_FRAMES = 64 };

/** Not used by this library; null everywhere. */
struct resampler_buffer_provider;

/** One converter. Threads: one at a time. Calls allocate nothing and never block. */
struct resampler_itfe {
    /** Forgets the signal so far; the next input starts from silence. */
    void (*reset)(resampler_itfe* resampler);

    /**
     * Converts `*inFrameCount` input frames into at most `*outFrameCount` output frames.
     * On return the counts hold the frames consumed and produced. Input that is not consumed must
     * be offered again. The output depends on the input alone, not on how calls cut it.
     *
     * Input for the room, n * inRate / outRate rounded up, fills it, from the first call on. Less
     * input yields less, but at least one frame, although lowering the rate a few input frames may
     * make none: the next calls make up for it. Only after several such calls in a row a call may
     * produce nothing; it consumes what it is given until that is made up for.
     * 0; -EINVAL: a null pointer (counts become 0).
     */
    int (*resample_from_input)(resampler_itfe* resampler, int16_t* in, size_t* inFrameCount,
                               int16_t* out, size_t* outFrameCount);

    /** Latency in ns: how far the output lags behind the input. */
    int32_t (*delay_ns)(resampler_itfe* resampler);
};

/**
 * Makes a converter for rates from 4000 to 768000 Hz and 1 to 8 channels. `quality` is 0 to 10; all
 * levels give the same filter. `provider` must be null. Takes up to a few milliseconds.
 * 0; -EINVAL: a rate, a channel count, a quality or a pointer outside what is supported;
 * -ENOMEM: no memory. `*resampler` is null unless the result is 0.
 */
int create_resampler(uint32_t inSampleRate, uint32_t outSampleRate, uint32_t channelCount,
                     uint32_t quality, resampler_buffer_provider* provider,
                     resampler_itfe** resampler);

/** Frees a converter; null is accepted. */
void release_resampler(resampler_itfe* resampler);
