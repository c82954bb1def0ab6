// Loads the library as a host does, by name at run time, and unloads it in every state.

#include <dirent.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <string>
#include <vector>

#include "interface/streamproxy.h"
#include "tests/support/Eventually.h"

namespace {

std::atomic<int> gBlocks{0};

int countBlock(void*, void*, size_t) {
    ++gBlocks;
    return 0;
}

size_t threadCount() {
    size_t count = 0;
    DIR* const tasks = opendir("/proc/self/task");
    while (tasks != nullptr && readdir(tasks) != nullptr) {
        ++count;
    }
    closedir(tasks);
    return count;
}

[[maybe_unused]] bool isMapped(const char* library) {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        if (line.find(library) != std::string::npos) {
            return true;
        }
    }
    return false;
}

#define FIND(library, name) reinterpret_cast<decltype(&(name))>(dlsym(library, #name))

TEST(Unload, ReleasesAPipelineStreamsAndOutputsThatAreStillAlive) {
    size_t before = 0;
    for (int round = 0; round < 20; ++round) {
        void* const library = dlopen(STREAMPROXY_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(nullptr, library) << dlerror();
        const auto createPipeline = FIND(library, create_audio_proxy_pipeline);
        const auto registerOutput = FIND(library, audio_proxy_pipeline_register_output);
        const auto createStream = FIND(library, create_audio_proxy_stream);
        const auto write = FIND(library, audio_proxy_stream_write);
        const audio_proxy_config_t config = {48000, STREAMPROXY_FORMAT_PCM_16_BIT,
                                             STREAMPROXY_CHANNEL_MASK_STEREO, 0};
        audio_proxy_pipeline_t* const pipeline = createPipeline();
        ASSERT_EQ(0, registerOutput(pipeline, &config, nullptr, &countBlock));
        audio_proxy_stream_t* const stream = createStream(&config);
        const int heard = gBlocks;
        const std::vector<uint8_t> block(960 * 4);
        write(stream, block.data(), block.size());
        EXPECT_TRUE(eventually([heard] { return gBlocks > heard; }));
        const size_t during = threadCount();
        ASSERT_EQ(0, dlclose(library));
        // A thread that was joined is listed a moment longer.
        EXPECT_TRUE(eventually([during] { return threadCount() == during - 1; }));
        // After the first round, so that a sanitizer's thread does not count.
        before = round == 0 ? threadCount() : before;
        EXPECT_EQ(before, threadCount());
#ifndef STREAMPROXY_LIBRARIES_STAY  // a sanitizer's run time keeps what it has seen
        EXPECT_FALSE(isMapped("libstreamproxy.so"));
#endif
    }
}

}  // namespace
