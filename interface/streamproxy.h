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
 *   -EINVAL (-22)  null handle, a stream that was destroyed, a pipeline that is not the current one,
 *                  a configuration that is refused; nothing changes
 *   -ENODEV (-19)  the stream can't be played; no function answers it at present
 *   -ENOSYS (-38)  not supported by this kind of stream, or a call that is forbidden inside an
 *                  output callback; nothing changes
 *   -ENOMEM (-12)  memory is out; nothing changes unless the function says so
 *
 * Threads: every function may be called from any host thread. Writes to one stream come from one
 * thread at a time. Inside an output callback the audio_proxy_stream_ functions may be called; the
 * pipeline functions, create_audio_proxy_stream() and destroy_audio_proxy_stream() may not, since
 * they wait for the mixing cycle that the callback is part of: there they log an error and return
 * -ENOSYS, or null. For the same reason no thread may call those while it holds a lock that an
 * output callback takes; the audio_proxy_stream_ functions do not wait for a callback. Two of them
 * wait for frames to be mixed, which none are meanwhile: inside a callback a write into a full stream
 * and the closing of one that holds frames take their second.
 *
 * Processes: when the process ends, the mixer thread is stopped and the rest is left to the system. In
 * a process that was forked from one with a pipeline there is none and none can be made.
 *
 * C sees opaque handles. C++ sees the stream interface itself.
 */
#ifndef STREAMPROXY_H
#define STREAMPROXY_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
/** The function is one that the library exports. */
#define STREAMPROXY_API __attribute__((visibility("default")))
#else
#define STREAMPROXY_API
#endif

/** The version of the library that this header belongs to. */
#define STREAMPROXY_VERSION_MAJOR 0
#define STREAMPROXY_VERSION_MINOR 1
#define STREAMPROXY_VERSION_PATCH 0

/** Sample formats. A 32-bit sample is Q4.27: full scale is 1 << 27. */
#define STREAMPROXY_FORMAT_PCM_16_BIT 0x1U
#define STREAMPROXY_FORMAT_PCM_32_BIT 0x3U

/** Channel masks. Every output is stereo. */
#define STREAMPROXY_CHANNEL_MASK_MONO 0x1U
#define STREAMPROXY_CHANNEL_MASK_STEREO 0x3U

/** Flags of a stream: it carries HW-sync bursts, headers with timestamps before their PCM. */
#define STREAMPROXY_FLAG_HW_AV_SYNC 0x40U

/** Limits of a stream and of an output. */
#define STREAMPROXY_MIN_SAMPLE_RATE 4000U
#define STREAMPROXY_MAX_SAMPLE_RATE 768000U
#define STREAMPROXY_MAX_CHANNEL_COUNT 8U

/** A stream or an output. The library copies it during the call. Native byte order, 16 bytes. */
typedef struct audio_proxy_config_t {
    uint32_t sample_rate;  /**< Hz */
    uint32_t format;       /**< sample format: 1 = 16-bit PCM, 3 = 32-bit PCM (Q4.27) */
    uint32_t channel_mask; /**< output channel mask: 1 = mono (left), 3 = stereo, ... */
    uint32_t flags;        /**< output flags; 0x40 = hardware AV sync (bursts with timestamps) */
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
/** The pipeline, known by its handle alone. */
typedef android::AudioPipeline audio_proxy_pipeline_t;

/** One stream, as the library hands it out. The exported functions below call these operations.
 *  Never delete it: destroy_audio_proxy_stream() gives it back. */
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
    /** Whether the mixer takes frames from it: from open() or a write to pause() or close(). */
    virtual bool isOpened() const = 0;
    /** audio_proxy_stream_open() */
    virtual int open() = 0;
    /** audio_proxy_stream_pause() */
    virtual int pause() = 0;
    /** audio_proxy_stream_resume() */
    virtual int resume() = 0;
    /** audio_proxy_stream_close() */
    virtual int close() = 0;
    /** As audio_proxy_stream_write(), but a stream with AV sync has to be open. */
    virtual int write(const void* buffer, size_t bytes) = 0;
    /** audio_proxy_stream_flush() */
    virtual int flush() = 0;
    /** audio_proxy_stream_dump() */
    virtual int dump(int fd) = 0;
};

extern "C" {
#else
/** The pipeline, known by its handle alone. */
typedef struct audio_proxy_pipeline_t audio_proxy_pipeline_t;
/** A stream, known by its handle alone. */
typedef struct audio_proxy_stream_t audio_proxy_stream_t;
#endif

/** The one pipeline, made by the first call; its mixer thread starts at once. Null only inside an
 *  output callback, in a process that was forked from one with a pipeline, or where there is no memory
 *  or no thread for it; a later call tries again. */
STREAMPROXY_API audio_proxy_pipeline_t* create_audio_proxy_pipeline(void);

/** Stops the mixer thread and waits for it: no callback runs afterwards. Closes and releases every
 *  stream that was not destroyed. 0, also for null while there is no pipeline; -EINVAL: not the
 *  current pipeline. */
STREAMPROXY_API int destroy_audio_proxy_pipeline(audio_proxy_pipeline_t* pipeline);

/** Writes the mixer's and every stream's state as text to `fd`. Waits for a callback in progress, at
 *  most 200 ms; a line tells of one that lasts longer. 0, also for a pipeline that is not
 *  the current one and for a descriptor that takes nothing; a broken pipe raises no SIGPIPE. */
STREAMPROXY_API int audio_proxy_pipeline_dump(audio_proxy_pipeline_t* pipeline, int fd);

/**
 * Adds an output. The pair (cookie, callback) names it; registering the pair again changes nothing
 * and is 0. A null callback is an output that hears nothing.
 * -EINVAL: not the current pipeline; null config; a configuration that differs in any field from
 * the outputs already registered, or that streams can't be converted to (a rate below 4 or above
 * 768 kHz, a format other than 1 and 3, a mask other than 3). -ENOMEM: the output is not added; some
 * streams may be converted to its configuration already, and play at full volume.
 */
STREAMPROXY_API int audio_proxy_pipeline_register_output(audio_proxy_pipeline_t* pipeline,
                                                         const audio_proxy_config_t* config,
                                                         void* cookie,
                                                         audio_proxy_output_callback_t callback);

/** Removes an output; waits for the current cycle, so the callback is not running afterwards.
 *  0, also for an unknown pair; -EINVAL: not the current pipeline. */
STREAMPROXY_API int audio_proxy_pipeline_unregister_output(audio_proxy_pipeline_t* pipeline,
                                                           void* cookie,
                                                           audio_proxy_output_callback_t callback);

/** "key=value;..." pairs. Known: "set_audio_delay", the downstream latency offset of every stream
 *  in signed ms, applied by the mixer thread. 0, also for unknown keys; -EINVAL: not the current
 *  pipeline. */
STREAMPROXY_API int audio_proxy_pipeline_set_parameters(audio_proxy_pipeline_t* pipeline,
                                                        const char* keyValuePairs);

/**
 * A new stream, closed. Its buffer holds as many frames as the system property
 * "persist.vendor.hwsync.fbuffer.size" says, 2000 when unset.
 * Null: null config, a format that is not PCM, no pipeline, no conversion to the mixing
 * configuration, or no memory. A stream whose buffer alone got no memory takes nothing.
 */
STREAMPROXY_API audio_proxy_stream_t* create_audio_proxy_stream(const audio_proxy_config_t* config);

/* Every function below returns -EINVAL for a null stream and, as far as the library can still tell, for
   one that was destroyed: the next stream may get the same handle. */

/** "key=value;..." pairs. Known to a stream with AV sync: "hw_av_sync", the id of its clock, a
 *  decimal int. 0, also for unknown keys and where no clock can be had. */
STREAMPROXY_API int audio_proxy_stream_set_parameters(audio_proxy_stream_t* stream,
                                                      const char* keyValuePairs);
/** The mixer takes frames from the stream from its next cycle on. 0; -ENOSYS: a tunnel stream got no
 *  memory, and stays closed. */
STREAMPROXY_API int audio_proxy_stream_open(audio_proxy_stream_t* stream);
/** The mixer skips the stream from its next cycle on, until audio_proxy_stream_open() or a write that
 *  begins after this call. A tunnel stream's write that waits for room goes on after
 *  audio_proxy_stream_resume() too; without any of these it gives up after its second. */
STREAMPROXY_API int audio_proxy_stream_pause(audio_proxy_stream_t* stream);
/** Lets the clock of a stream with AV sync run on and anchors it anew. Opens the stream only for a
 *  write that a pause has struck while it waits; otherwise the next write does, or
 *  audio_proxy_stream_open(). 0. */
STREAMPROXY_API int audio_proxy_stream_resume(audio_proxy_stream_t* stream);
/** Ends a write in progress, whose count is what was placed. Waits up to 1 s for the mixer to take
 *  frames, or for a signal, discards what is left, closes; a write that begins meanwhile ends with
 *  it. A tunnel stream begins anew with a header. */
STREAMPROXY_API int audio_proxy_stream_close(audio_proxy_stream_t* stream);
/** Discards every frame that was placed and not yet mixed, in the rate converter too, and ends silence
 *  that is being inserted. A write that waits goes on with the rest of its data. */
STREAMPROXY_API int audio_proxy_stream_flush(audio_proxy_stream_t* stream);

/**
 * Writes whole frames, opening the stream if it is closed. Blocks while the stream's buffer is
 * full, for about a second at most (a tunnel stream: for each run of payload and each silence), or
 * until the stream is closed or destroyed. Bytes taken (a multiple of the frame size, fewer than `bytes`
 * when the mixer did not make room), or a negative status.
 */
STREAMPROXY_API int audio_proxy_stream_write(audio_proxy_stream_t* stream, const void* buffer,
                                             size_t bytes);

/** Linear gains, 0.0 to 1.0, reached by a linear ramp as long as the stream's buffer.
 *  -EINVAL: the left gain is outside the range; a right gain outside is held to it. */
STREAMPROXY_API int audio_proxy_stream_set_volume(audio_proxy_stream_t* stream, float left,
                                                  float right);

/** Latency behind the output and an offset to it, both ms. -ENOSYS: not a stream with AV sync. */
STREAMPROXY_API int audio_proxy_stream_set_downstream_latency(audio_proxy_stream_t* stream,
                                                              unsigned long latencyMs,
                                                              long offsetMs);

/** The stream's full buffer in microseconds, cut to whole milliseconds. */
STREAMPROXY_API uint32_t audio_proxy_stream_get_latency(audio_proxy_stream_t* stream);

/** Writes the stream's state as text to `fd`. 0, also for a descriptor that takes nothing; a broken
 *  pipe raises no SIGPIPE. -ENOMEM: nothing is written. */
STREAMPROXY_API int audio_proxy_stream_dump(audio_proxy_stream_t* stream, int fd);

/** Closes the stream and releases it; a call that another thread has under way ends safely, and the
 *  handle is invalid afterwards. -EINVAL: null, a stream that was destroyed, or there is no pipeline
 *  (nothing is touched then). */
STREAMPROXY_API int destroy_audio_proxy_stream(audio_proxy_stream_t* stream);

#ifdef __cplusplus
}
#endif

#endif
