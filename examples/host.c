/* The smallest host in C. It loads the library as an audio HAL does, plays two tones on two streams
 * of different rates, and writes the mix to a file of raw samples.
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

/* Writes block number `block`, 20 ms of a tone in 16-bit stereo. */
static void play(audio_proxy_stream_t* stream, uint32_t rate, double frequency, uint32_t block) {
    int16_t frames[MAX_BLOCK_FRAMES][2];
    const uint32_t count = rate / BLOCKS_PER_SECOND;
    for (uint32_t i = 0; i < count; ++i) {
        const double time = (double)(block * count + i) / rate;
        const int16_t sample = (int16_t)(8000 * sin(2 * 3.14159265358979 * frequency * time));
        frames[i][0] = frames[i][1] = sample;
    }
    const int bytes = (int)(count * sizeof(frames[0]));
    if (proxy.write(stream, frames, (size_t)bytes) != bytes) {
        die("the mixer made no room for a second");
    }
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
    audio_proxy_stream_t* const low = proxy.create_stream(&mix);
    audio_proxy_stream_t* const high = proxy.create_stream(&other);
    if (low == NULL || high == NULL) {
        die("a stream is refused");
    }
    for (uint32_t block = 0; block < SECONDS * BLOCKS_PER_SECOND; ++block) {
        play(low, mix.sample_rate, 440, block);
        play(high, other.sample_rate, 660, block);
    }
    proxy.destroy_stream(low); /* waits until the mixer has taken more of it */
    proxy.destroy_stream(high);
    proxy.unregister_output(pipeline, file, &hear);
    proxy.destroy_pipeline(pipeline);
    printf("%ld bytes of raw samples in %s\n", ftell(file), argv[2]);
    fclose(file);
    dlclose(library);
    return 0;
}
