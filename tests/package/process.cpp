// A host that shares its properties, its log and the AV-sync clock with the library. If the library
// had others of its own, it would see nothing of what is set here.

#include <android/log.h>
#include <avsync/AVSyncBridge.h>
#include <avsync/AVSyncClock.h>
#include <cutils/properties.h>
#include <streamproxy.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr audio_proxy_config_t kPlain = {48000, 1, 3, 0};
constexpr audio_proxy_config_t kTunnel = {48000, 1, 3, 0x40};

std::atomic<int> sMessages = 0;

void expect(bool holds, const char* what) {
    if (!holds) {
        fprintf(stderr, "process: %s\n", what);
        exit(1);
    }
}

}  // namespace

int main() {
    __android_log_set_logger([](const __android_log_message*) { ++sMessages; });
    property_set("persist.vendor.hwsync.fbuffer.size", "4800");
    audio_proxy_pipeline_t* const pipeline = create_audio_proxy_pipeline();

    audio_proxy_stream_t* const plain = create_audio_proxy_stream(&kPlain);
    expect(plain->getLatency() == 100'000, "the library does not see the property");

    const android::sp<android::AVSyncClock> clock = android::AVSyncClock::forId(7);
    audio_proxy_stream_t* const tunnel = create_audio_proxy_stream(&kTunnel);
    tunnel->setParameters("hw_av_sync=7");
    tunnel->open();
    expect(!clock->takeRecords().empty(), "the library asks another clock");
    expect(sMessages > 0, "the library logs elsewhere");

    destroy_audio_proxy_stream(tunnel);
    destroy_audio_proxy_stream(plain);
    destroy_audio_proxy_pipeline(pipeline);
    __android_log_set_logger(nullptr);
    return 0;
}
