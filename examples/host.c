/* The smallest host in C. It loads the library as an audio HAL does, plays two tones on two streams
 * of different rates to their ends, and writes the mix to a file of raw samples.
 *
 *     host_c LIBRARY OUTPUT.raw
 *     aplay -f S16_LE -c 2 -r 48000 OUTPUT.raw
 */
#include <dlfcn.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <threads.h>
#include <time.h>

#include "streamproxy.h"

enum { MIX_RATE = 48000, SECONDS = 2, BLOCKS_PER_SECOND = 50, MAX_BLOCK_FRAMES = 960 };

static struct {
    audio_proxy_pipeline_t* (*create_pipeline)(void);
    int (*register_output)(audio_proxy_pipeline_t*, const audio_proxy_config_t*, void*,
                           audio_proxy_output_callback_t);
    int (*unregister_output)(audio_proxy_pipeline_t*, void*, audio_proxy_output_callback_t);
    int (*destroy_pipeline)(audio_proxy_pipeline_t*);
    audio_proxy_stream_t* (*create_stream)(const audio_proxy_config_t*);
    int (*write)(audio_proxy_stream_t*, const void*, size_t);
    int (*pause)(audio_proxy_stream_t*);
    int (*flush)(audio_proxy_stream_t*);
    uint32_t (*get_latency)(audio_proxy_stream_t*);
    int (*destroy_stream)(audio_proxy_stream_t*);
} proxy;

static void die(const char* what) {
    fprintf(stderr, "host_c: %s\n", what);
    exit(1);
}

static void load(void* library, const char* name, void* function) {
    void* const address = dlsym(library, name);
    if (address == NULL) {
        die(dlerror());
    }
    memcpy(function, &address, sizeof(address));
}

static void* load_all(const char* path) {
    void* const library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (library == NULL) {
        die(dlerror());
    }
    load(library, "create_audio_proxy_pipeline", &proxy.create_pipeline);
    load(library, "audio_proxy_pipeline_register_output", &proxy.register_output);
    load(library, "audio_proxy_pipeline_unregister_output", &proxy.unregister_output);
    load(library, "destroy_audio_proxy_pipeline", &proxy.destroy_pipeline);
    load(library, "create_audio_proxy_stream", &proxy.create_stream);
    load(library, "audio_proxy_stream_write", &proxy.write);
    load(library, "audio_proxy_stream_pause", &proxy.pause);
    load(library, "audio_proxy_stream_flush", &proxy.flush);
    load(library, "audio_proxy_stream_get_latency", &proxy.get_latency);
    load(library, "destroy_audio_proxy_stream", &proxy.destroy_stream);
    return library;
}

/* The mixer thread calls this with about 20 ms of audio, and mixes on when it returns: it takes as
 * long as a device would. */
static int hear(void* file, void* buffer, size_t bytes) {
    const struct timespec duration = {.tv_nsec = (long)(bytes / 4 * 1000000000 / MIX_RATE)};
    thrd_sleep(&duration, NULL);
    return fwrite(buffer, 1, bytes, file) == bytes ? 0 : -1;
}

struct tone {
    audio_proxy_stream_t* stream;
    uint32_t rate;
    double frequency;
};

/* Writes block number `block`, 20 ms of a tone in 16-bit stereo, or of silence after its end. */
static void play(const struct tone* tone, uint32_t block) {
    int16_t frames[MAX_BLOCK_FRAMES][2];
    const uint32_t count = tone->rate / BLOCKS_PER_SECOND;
    const double amplitude = block < SECONDS * BLOCKS_PER_SECOND ? 8000 : 0;
    for (uint32_t i = 0; i < count; ++i) {
        const double time = (double)(block * count + i) / tone->rate;
        const double value = amplitude * cos(2 * 3.14159265358979 * tone->frequency * time);
        frames[i][0] = frames[i][1] = (int16_t)value;
    }
    const int bytes = (int)(count * sizeof(frames[0]));
    if (proxy.write(tone->stream, frames, (size_t)bytes) != bytes) {
        die("the mixer made no room for a second");
    }
}

/* Blocks of silence that push the last frame of a 16-bit stereo stream out: its ring, and 20 ms for
 * the rate converter. The latency is cut to whole ms. */
static uint32_t blocks_to_end(const struct tone* tone) {
    const uint32_t ring_ms = proxy.get_latency(tone->stream) / 1000 + 1;
    return (ring_ms + 20 + 19) / 20;
}

/* Paused and flushed, a stream is destroyed without a wait for the mixer. */
static void end(const struct tone* tone) {
    proxy.pause(tone->stream);
    proxy.flush(tone->stream);
    proxy.destroy_stream(tone->stream);
}

int main(int argc, char** argv) {
    if (argc != 3) {
        die("usage: host_c LIBRARY OUTPUT.raw");
    }
    void* const library = load_all(argv[1]);
    FILE* const file = fopen(argv[2], "wb");
    if (file == NULL) {
        die("cannot write the output");
    }
    audio_proxy_config_t mix = {.sample_rate = MIX_RATE,
                                .format = STREAMPROXY_FORMAT_PCM_16_BIT,
                                .channel_mask = STREAMPROXY_CHANNEL_MASK_STEREO};
    audio_proxy_config_t other = mix;
    other.sample_rate = 44100;

    audio_proxy_pipeline_t* const pipeline = proxy.create_pipeline();
    if (proxy.register_output(pipeline, &mix, file, &hear) != 0) {
        die("the output is refused");
    }
    const struct tone low = {proxy.create_stream(&mix), mix.sample_rate, 440};
    const struct tone high = {proxy.create_stream(&other), other.sample_rate, 660};
    if (low.stream == NULL || high.stream == NULL) {
        die("a stream is refused");
    }
    /* The ring of the lower rate lasts longer. Both get silence until both have ended: an open
     * stream without data would stop the mix. */
    const uint32_t blocks = SECONDS * BLOCKS_PER_SECOND + blocks_to_end(&high);
    for (uint32_t block = 0; block < blocks; ++block) {
        play(&low, block);
        play(&high, block);
    }
    end(&low);
    end(&high); /* the callback has had everything */
    proxy.unregister_output(pipeline, file, &hear);
    proxy.destroy_pipeline(pipeline);
    printf("%ld bytes of raw samples in %s\n", ftell(file), argv[2]);
    fclose(file);
    dlclose(library);
    return 0;
}
