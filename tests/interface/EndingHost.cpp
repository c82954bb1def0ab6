// A host that plays while its process ends in one of several ways; see ProcessEndTest.cpp.

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "interface/streamproxy.h"
#include "virtualtime/VirtualMachine.h"

namespace {

constexpr audio_proxy_config_t kMix = {48000, STREAMPROXY_FORMAT_PCM_16_BIT,
                                       STREAMPROXY_CHANNEL_MASK_STEREO, 0};
constexpr audio_proxy_config_t kTunnel = {48000, STREAMPROXY_FORMAT_PCM_16_BIT,
                                          STREAMPROXY_CHANNEL_MASK_STEREO,
                                          STREAMPROXY_FLAG_HW_AV_SYNC};

std::atomic<int> gBlocks{0};
bool gHangs = false;
std::atomic<bool> gIsGone{false};

int hear(void*, void*, size_t) {
    if (gIsGone) {
        abort();
    }
    ++gBlocks;
    do {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    } while (gHangs);
    return 0;
}

/** The rest of a host's teardown. */
struct SlowTeardown {
    ~SlowTeardown() {
        gIsGone = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
    }
} gTeardown;

/** A host that cleans up when its process ends. */
struct Owner {
    ~Owner() {
        for (audio_proxy_stream_t* const stream : streams) {
            destroy_audio_proxy_stream(stream);
        }
        if (!streams.empty()) {
            audio_proxy_pipeline_unregister_output(pipeline, nullptr, &hear);
            destroy_audio_proxy_pipeline(pipeline);
        }
    }
    audio_proxy_pipeline_t* pipeline = nullptr;
    std::vector<audio_proxy_stream_t*> streams;
} gOwner;

void own(audio_proxy_pipeline_t* pipeline) {
    gOwner.pipeline = pipeline;
    const std::vector<uint8_t> block(8000);
    for (int i = 0; i < 8; ++i) {
        gOwner.streams.push_back(create_audio_proxy_stream(&kMix));
        audio_proxy_stream_write(gOwner.streams.back(), block.data(), block.size());
    }
}

void awaitBlocks(int count) {
    while (gBlocks < count) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

audio_proxy_pipeline_t* play() {
    audio_proxy_pipeline_t* const pipeline = create_audio_proxy_pipeline();
    audio_proxy_pipeline_register_output(pipeline, &kMix, nullptr, &hear);
    // Both before the first write: a creation waits for a callback, and this one may hang.
    audio_proxy_stream_t* const streams[] = {create_audio_proxy_stream(&kMix),
                                             create_audio_proxy_stream(&kTunnel)};
    for (audio_proxy_stream_t* const stream : streams) {
        audio_proxy_stream_set_parameters(stream, "hw_av_sync=1");
        std::thread([stream] {
            std::array<uint8_t, 3860> block = {};  // a forked process would see a leak in the heap
            const uint8_t header[] = {0x55, 0x55, 0, 2, 0, 0, 0x0F, 0, 0, 0,
                                      0,    0,    0, 0, 0, 0, 0,    0, 0, 20};
            std::memcpy(block.data(), header, sizeof(header));
            for (;;) {
                audio_proxy_stream_write(stream, block.data(), block.size());
            }
        }).detach();
    }
    awaitBlocks(1);
    return pipeline;
}

/** Pipelines come and go while the process ends. */
void recreate() {
    const std::vector<uint8_t> block(960 * 4);
    while (audio_proxy_pipeline_t* const pipeline = create_audio_proxy_pipeline()) {
        audio_proxy_pipeline_register_output(pipeline, &kMix, nullptr, &hear);
        audio_proxy_stream_t* const stream = create_audio_proxy_stream(&kMix);
        audio_proxy_stream_write(stream, block.data(), block.size());
        std::this_thread::sleep_for(std::chrono::milliseconds(2));  // is heard
        destroy_audio_proxy_stream(stream);
        audio_proxy_pipeline_unregister_output(pipeline, nullptr, &hear);
        destroy_audio_proxy_pipeline(pipeline);
    }
}

bool gIsForked = false;

/** The result of `deed` in a forked process. */
template <typename Deed>
int inFork(Deed deed) {
    const pid_t child = fork();
    if (child == 0) {
        gIsForked = true;
        alarm(10);
        exit(deed());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 100 + WTERMSIG(status);
}

/** What main() returns. */
int end(const std::string& way) {
    gHangs = way == "hang" || way == "give-back-hanging";
    if (way == "fork-first") {
        // A process without a pipeline passes none on: its child may create one.
        return inFork([] { return destroy_audio_proxy_pipeline(play()); });
    }
    if (way == "recreate") {
        std::thread(recreate).detach();
        awaitBlocks(20);
        return 0;
    }
    if (way == "give-back") {
        own(play());
        return 0;
    }
    if (way == "give-back-hanging") {
        audio_proxy_pipeline_t* const pipeline = create_audio_proxy_pipeline();
        own(pipeline);
        audio_proxy_pipeline_register_output(pipeline, &kMix, nullptr, &hear);
        awaitBlocks(1);
        return 0;
    }
    audio_proxy_pipeline_t* const pipeline = play();
    if (way == "fork-exit") {
        return inFork([] { return 0; });
    }
    if (way == "fork-call") {
        return inFork([pipeline] {
            audio_proxy_stream_t* const stream = create_audio_proxy_stream(&kMix);
            const bool isRefused =
                stream == nullptr && create_audio_proxy_pipeline() == nullptr &&
                destroy_audio_proxy_pipeline(pipeline) == -22 &&
                audio_proxy_pipeline_dump(pipeline, 1) == 0 &&
                audio_proxy_stream_write(reinterpret_cast<audio_proxy_stream_t*>(&gBlocks), "four",
                                         4) == -22;
            return isRefused ? 0 : 1;
        });
    }
    return 0;
}

}  // namespace

// Whether a sanitizer skips its search for leaks. In a forked process it would wait for a lock of its
// own that a thread of the other process held, and look at stacks of threads that are not there.
extern "C" int __lsan_is_turned_off() {
    return gIsForked ? 1 : 0;
}

/** `WAY [SEED]`: with a seed in virtual time, to the end of the process. */
int main(int count, char** arguments) {
    alarm(20);
    const std::string way = arguments[1];
    if (count < 3) {
        return end(way);
    }
    const android::VirtualMachine::Config config = {
        .seed = std::strtoull(arguments[2], nullptr, 10),
        .order = android::VirtualMachine::Order::UNIFORM,
        .maxStepCostNs = 1000};
    android::VirtualMachine::run(config, [&way] { exit(end(way)); });
}
