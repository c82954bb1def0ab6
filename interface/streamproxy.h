/**
 * @file
 * libstreamproxy: a software audio pipeline in front of an audio HAL's outputs.
 *
 * The host writes PCM into streams. The library converts every open stream to one mixing
 * configuration (rate, sample format, channels), mixes them on one worker thread in blocks of about
 * 20 ms and hands each block to every registered output.
 *
 * Order of calls: create the pipeline; register outputs and create streams in any order; write and
 * control the streams; destroy every stream; unregister every output; destroy the pipeline. The
 * first registered output fixes the mixing configuration.
 *
 * Statuses: 0 for success, otherwise a negative errno value.
 *   -EINVAL (-22)  a null handle, a destroyed stream, a pipeline that is not the current one or a
 *                  configuration that is refused; nothing changes
 *   -ENODEV (-19)  audio_proxy_stream_open(): another thread is destroying the stream
 *   -ENOSYS (-38)  not supported by this kind of stream, or refused inside an output callback;
 *                  nothing changes
 *   -ENOMEM (-12)  out of memory; nothing changes unless the function says so
 *
 * Threads: a line at each function says which threads may call it, how long it may block, and
 * whether an output callback may call it.
 *   Blocks: "a cycle" lasts until the mixing cycle in progress has ended, callbacks included. Such
 *           calls run one after another. "no" leaves out short internal locks, and the answers of a
 *           tunnel stream's AV-sync clock.
 *   In a callback: a refused call would wait for the cycle that the callback is part of. It logs an
 *           error and returns -ENOSYS or null, a dump 0. No thread may make such a call while it holds a lock
 *           that an output callback takes.
 * Nothing is mixed while a callback runs. Inside a callback, writing to a full stream or closing a
 * non-empty one therefore blocks for its whole one-second timeout.
 *
 * Processes: when the process ends, the library stops the mixer thread and leaves the rest to the
 * system. A process forked from one with a pipeline has no pipeline and cannot create one.
 *
 * C sees opaque handles. C++ sees the stream interface itself.
 */
#ifndef STREAMPROXY_H
#define STREAMPROXY_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
/** Marks a function that the library exports. */
#define STREAMPROXY_API __attribute__((visibility("default")))
#else
#define STREAMPROXY_API
#endif

/** The version is MAJOR.MINOR.PATCH. A new major version breaks hosts that were built before. */
#define STREAMPROXY_VERSION_MAJOR 0
/** Grows with each release that adds something. */
#define STREAMPROXY_VERSION_MINOR 1
/** Grows with each release that only repairs. */
#define STREAMPROXY_VERSION_PATCH 0

#define STREAMPROXY_FORMAT_PCM_16_BIT 0x1U /**< samples of 16 bits: full scale is 1 << 15 */
#define STREAMPROXY_FORMAT_PCM_32_BIT 0x3U /**< samples of 32 bits, Q4.27: full scale is 1 << 27 */

#define STREAMPROXY_CHANNEL_MASK_MONO 0x1U   /**< one channel, which plays on the left */
#define STREAMPROXY_CHANNEL_MASK_STEREO 0x3U /**< two channels; every output is stereo */

/** Flag of a tunnel stream: its writes carry HW-sync bursts, headers with timestamps and PCM. */
#define STREAMPROXY_FLAG_HW_AV_SYNC 0x40U

#define STREAMPROXY_MIN_SAMPLE_RATE 4000U   /**< lowest rate of a stream or output, in Hz */
#define STREAMPROXY_MAX_SAMPLE_RATE 768000U /**< highest rate of a stream or output, in Hz */
/** Channels of a stream. An output hears the first two. */
#define STREAMPROXY_MAX_CHANNEL_COUNT 30U

/** A stream or an output. The library copies it during the call. Native byte order, 16 bytes. */
typedef struct audio_proxy_config_t {
    uint32_t sample_rate;  /**< Hz */
    uint32_t format;       /**< STREAMPROXY_FORMAT_... */
    uint32_t channel_mask; /**< STREAMPROXY_CHANNEL_MASK_...; a stream may have another */
    uint32_t flags;        /**< output flags; STREAMPROXY_FLAG_HW_AV_SYNC for a tunnel stream */
} audio_proxy_config_t;

/**
 * Receives one block of mixed PCM on the mixer thread. `buffer` holds `bytes` bytes of whole
 * interleaved frames in the mixing configuration and is valid during the call only. The result is
 * ignored. The time the callback takes paces the mixer: the next block is mixed when it returns.
 */
typedef int (*audio_proxy_output_callback_t)(void* cookie, void* buffer, size_t bytes);

#ifdef __cplusplus

namespace android {
class AudioPipeline;
}
/** The pipeline, an opaque handle. */
typedef android::AudioPipeline audio_proxy_pipeline_t;

/** One stream. The exported functions below call these operations. Never delete it: call
 *  destroy_audio_proxy_stream(). */
class audio_proxy_stream_t {
public:
    /** Not for hosts. */
    virtual ~audio_proxy_stream_t() = default;
    /** audio_proxy_stream_set_volume() */
    virtual int setVolume(float left, float right) = 0;
    /** audio_proxy_stream_get_latency() */
    virtual uint32_t getLatency() = 0;
    /** audio_proxy_stream_set_downstream_latency() */
    virtual int setDownstreamLatency(unsigned long latencyMs, long offsetMs) = 0;
    /** audio_proxy_stream_set_parameters() */
    virtual int setParameters(const char* keyValuePairs) = 0;
    /** True while the mixer takes frames from it: from open() or a write to pause() or close(). */
    virtual bool isOpened() const = 0;
    /** audio_proxy_stream_open() */
    virtual int open() = 0;
    /** audio_proxy_stream_pause() */
    virtual int pause() = 0;
    /** audio_proxy_stream_resume() */
    virtual int resume() = 0;
    /** audio_proxy_stream_close() */
    virtual int close() = 0;
    /** As audio_proxy_stream_write(), but a tunnel stream has to be open. */
    virtual int write(const void* buffer, size_t bytes) = 0;
    /** audio_proxy_stream_flush() */
    virtual int flush() = 0;
    /** audio_proxy_stream_dump() */
    virtual int dump(int fd) = 0;
};

extern "C" {
#else
/** The pipeline, an opaque handle. */
typedef struct audio_proxy_pipeline_t audio_proxy_pipeline_t;
/** A stream, an opaque handle. */
typedef struct audio_proxy_stream_t audio_proxy_stream_t;
#endif

/**
 * Returns the one pipeline. The first call creates it and starts its mixer thread. Null only inside
 * an output callback, in a process forked from one with a pipeline, or without memory or a thread
 * for it; a later call tries again.
 * Threads: any. Blocks: while another call blocks for a cycle. In a callback: refused.
 */
STREAMPROXY_API audio_proxy_pipeline_t* create_audio_proxy_pipeline(void);

/**
 * Stops the mixer thread: no callback runs afterwards. Closes and frees every stream that was not
 * destroyed. 0, also for null while there is no pipeline; -EINVAL: not the current pipeline.
 * Threads: any. Blocks: a cycle. In a callback: refused.
 */
STREAMPROXY_API int destroy_audio_proxy_pipeline(audio_proxy_pipeline_t* pipeline);

/**
 * Writes the state of the mixer and of every stream as text to `fd`, with a line for a callback
 * that lasts longer than 200 ms. 0, also for a pipeline that is not the current one and for a
 * descriptor that takes nothing; a broken pipe raises no SIGPIPE.
 * Threads: any. Blocks: up to 200 ms for a callback, and while `fd` does. In a callback: refused,
 * with 0.
 */
STREAMPROXY_API int audio_proxy_pipeline_dump(audio_proxy_pipeline_t* pipeline, int fd);

/**
 * Adds an output, named by the pair (cookie, callback). Registering the pair again changes nothing
 * and returns 0. An output with a null callback hears nothing.
 * -EINVAL: not the current pipeline; null config; a configuration that differs in any field from
 * the outputs already registered; a rate, format or mask other than those above.
 * -ENOMEM: the output is not added; some streams may already be converted to its configuration, and
 * play at full volume.
 * Threads: any. Blocks: a cycle. In a callback: refused.
 */
STREAMPROXY_API int audio_proxy_pipeline_register_output(audio_proxy_pipeline_t* pipeline,
                                                         const audio_proxy_config_t* config,
                                                         void* cookie,
                                                         audio_proxy_output_callback_t callback);

/**
 * Removes an output: its callback is not running afterwards. 0, also for an unknown pair; -EINVAL:
 * not the current pipeline.
 * Threads: any. Blocks: a cycle. In a callback: refused.
 */
STREAMPROXY_API int audio_proxy_pipeline_unregister_output(audio_proxy_pipeline_t* pipeline,
                                                           void* cookie,
                                                           audio_proxy_output_callback_t callback);

/**
 * Takes "key=value;..." pairs. Known: "set_audio_delay", the downstream latency offset of every
 * stream in signed ms; the mixer thread applies it. 0, also for unknown keys; -EINVAL: not the
 * current pipeline.
 * Threads: any. Blocks: while another call blocks for a cycle. In a callback: refused.
 */
STREAMPROXY_API int audio_proxy_pipeline_set_parameters(audio_proxy_pipeline_t* pipeline,
                                                        const char* keyValuePairs);

/**
 * Creates a closed stream. Its buffer holds as many frames as the system property
 * "persist.vendor.hwsync.fbuffer.size" says, 2000 when unset.
 * Null: null config, a format that is not PCM, no pipeline, no conversion to the mixing
 * configuration, or no memory. If only the buffer got no memory, the stream takes nothing.
 * Threads: any. Blocks: a cycle. In a callback: refused.
 */
STREAMPROXY_API audio_proxy_stream_t* create_audio_proxy_stream(const audio_proxy_config_t* config);

/* Every function below returns -EINVAL for a null stream, and for a destroyed one if the library
   can still tell: the next stream may get the same handle. */

/**
 * Takes "key=value;..." pairs. Known to a tunnel stream: "hw_av_sync", the id of its clock, a
 * decimal int. 0, also for unknown keys and if the platform has no such clock.
 * Threads: any. Blocks: no. In a callback: allowed.
 */
STREAMPROXY_API int audio_proxy_stream_set_parameters(audio_proxy_stream_t* stream,
                                                      const char* keyValuePairs);
/**
 * The mixer takes frames from the stream from its next cycle on. 0; -ENOSYS: a tunnel stream got no
 * memory, and stays closed.
 * Threads: any. Blocks: no; up to 1 s while a tunnel stream is closed. In a callback: allowed.
 */
STREAMPROXY_API int audio_proxy_stream_open(audio_proxy_stream_t* stream);
/**
 * The mixer skips the stream from its next cycle on, until audio_proxy_stream_open() or a write
 * that begins after this call. A tunnel stream's write that is waiting for room also goes on after
 * audio_proxy_stream_resume(); without any of these it gives up after its second.
 * Threads: any. Blocks: no. In a callback: allowed.
 */
STREAMPROXY_API int audio_proxy_stream_pause(audio_proxy_stream_t* stream);
/**
 * Lets a tunnel stream's clock run on and anchors it again. Opens the stream only for a write that
 * was waiting when the stream was paused; otherwise the next write or audio_proxy_stream_open()
 * opens it. 0.
 * Threads: any. Blocks: no. In a callback: allowed.
 */
STREAMPROXY_API int audio_proxy_stream_resume(audio_proxy_stream_t* stream);
/**
 * Ends a write in progress, which returns the bytes it placed. Waits until the mixer takes frames
 * or a signal arrives, discards the rest and closes. A write that begins meanwhile ends too. A
 * tunnel stream starts again with a header.
 * Threads: any. Blocks: up to 1 s; not if the stream is empty. In a callback: allowed.
 */
STREAMPROXY_API int audio_proxy_stream_close(audio_proxy_stream_t* stream);
/**
 * Discards every frame that was placed and not yet mixed, in the rate converter too, and ends
 * silence that is being inserted. A waiting write goes on with the rest of its data.
 * Threads: any. Blocks: while the mixer pulls from the stream. In a callback: allowed.
 */
STREAMPROXY_API int audio_proxy_stream_flush(audio_proxy_stream_t* stream);

/**
 * Writes whole frames, opening the stream if it is closed. Waits while the stream's buffer is full,
 * until the stream is closed or destroyed. Returns the bytes taken (a multiple of the frame size,
 * fewer than `bytes` if the mixer did not make room) or a negative status.
 * Threads: any, one at a time. Blocks: up to 1 s; a tunnel stream up to 1 s for each run of payload
 * and each silence. In a callback: allowed.
 */
STREAMPROXY_API int audio_proxy_stream_write(audio_proxy_stream_t* stream, const void* buffer,
                                             size_t bytes);

/**
 * Sets linear gains, 0.0 to 1.0, reached by a linear ramp as long as the stream's buffer.
 * -EINVAL: the left gain is outside the range. A right gain outside is clamped to it.
 * Threads: any. Blocks: no. In a callback: allowed.
 */
STREAMPROXY_API int audio_proxy_stream_set_volume(audio_proxy_stream_t* stream, float left,
                                                  float right);

/**
 * Sets the latency after the output and an offset to it, both in ms. -EINVAL: a negative offset
 * larger than the latency. -ENOSYS: not a tunnel stream.
 * Threads: any. Blocks: no. In a callback: allowed.
 */
STREAMPROXY_API int audio_proxy_stream_set_downstream_latency(audio_proxy_stream_t* stream,
                                                              unsigned long latencyMs,
                                                              long offsetMs);

/**
 * The duration of the stream's full buffer in microseconds, rounded down to whole milliseconds.
 * Threads: any. Blocks: no. In a callback: allowed.
 */
STREAMPROXY_API uint32_t audio_proxy_stream_get_latency(audio_proxy_stream_t* stream);

/**
 * Writes the stream's state as text to `fd`. 0, also for a descriptor that takes nothing; a broken
 * pipe raises no SIGPIPE. -ENOMEM: nothing is written.
 * Threads: any. Blocks: while `fd` does. In a callback: allowed.
 */
STREAMPROXY_API int audio_proxy_stream_dump(audio_proxy_stream_t* stream, int fd);

/**
 * Closes the stream and frees it. The handle becomes invalid; calls in progress on other threads
 * end safely. -EINVAL: null, a destroyed stream, or no pipeline (nothing is touched then).
 * Threads: any. Blocks: up to 1 s, then a cycle. In a callback: refused.
 */
STREAMPROXY_API int destroy_audio_proxy_stream(audio_proxy_stream_t* stream);

#ifdef __cplusplus
}
#endif

#endif
