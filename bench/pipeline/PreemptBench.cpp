// The cost of low-priority control calls for a mix on a loaded machine. A thread that is preempted
// while it holds something the worker needs makes the worker late, and the device runs dry.
//
// Busy loops use up two processors, so that threads at nice 19 are preempted everywhere.
#include <fcntl.h>
#include <getopt.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "bench/pipeline/LoadedHost.h"
#include "bench/support/QuietLog.h"

namespace {

using Clock = SoundCard::Clock;
using std::chrono::milliseconds;

constexpr size_t kProcessors = 2;
constexpr size_t kBusyLoops = 4;
constexpr int kControlNice = 19;
constexpr int kWorkerPriority = 10;
constexpr milliseconds kSettle{500};  // until the loops have spread over the processors
constexpr milliseconds kNoPause{0};
constexpr milliseconds kPause{50};

const int gNowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);

struct Call {
    const char* name;
    void (*run)(LoadedHost& host, size_t i);
    bool isInCycle;  // made unless others are asked for
    bool isShownAlone;
};

void dumpPipeline(LoadedHost& host, size_t /*i*/) {
    audio_proxy_pipeline_dump(host.pipeline(), gNowhere);
}

void setVolume(LoadedHost& host, size_t i) {
    const float gain = i % 2 == 0 ? 0.5F : 1.0F;
    audio_proxy_stream_set_volume(host.playing(i / 2), gain, gain);
}

void setDelay(LoadedHost& host, size_t i) {
    audio_proxy_pipeline_set_parameters(host.pipeline(),
                                        i % 2 == 0 ? "set_audio_delay=5" : "set_audio_delay=6");
}

void createAndDestroy(LoadedHost& /*host*/, size_t /*i*/) {
    constexpr audio_proxy_config_t kConfig = {48000, STREAMPROXY_FORMAT_PCM_16_BIT,
                                              STREAMPROXY_CHANNEL_MASK_STEREO, 0};
    destroy_audio_proxy_stream(create_audio_proxy_stream(&kConfig));
}

void getLatency(LoadedHost& host, size_t i) {
    audio_proxy_stream_get_latency(host.playing(i));
}

void dumpStream(LoadedHost& host, size_t i) {
    audio_proxy_stream_dump(host.playing(i), gNowhere);
}

void flushPaused(LoadedHost& host, size_t /*i*/) {
    audio_proxy_stream_flush(host.paused());
}

const std::vector<Call> kCalls = {
    {"dump", dumpPipeline, true, true},   {"volume", setVolume, true, true},
    {"delay", setDelay, true, true},      {"churn", createAndDestroy, true, true},
    {"latency", getLatency, true, false}, {"stream-dump", dumpStream, true, false},
    {"flush", flushPaused, false, true},
};

struct Row {
    std::string name;
    size_t threadCount;
    milliseconds pause;
    bool isRealTime;
    std::vector<Call> calls;
};

struct Options {
    milliseconds length{12'000};
    size_t runs = 3;
    size_t streams = 2;
    bool isEach = false;
    std::string filter;
    std::vector<Call> calls;
};

struct Run {
    double silenceMs;
    double longestMs;
    double callsASecond;
    double shortBlocks;
};

/** The control threads. Each makes one call after another, starting with a different one. */
class ControlThreads {
public:
    ControlThreads(const Row& row, LoadedHost& host) {
        for (size_t thread = 0; thread < row.threadCount; ++thread) {
            mThreads.emplace_back([this, &row, &host, thread] {
                setNice(kControlNice);
                for (size_t i = thread; !mIsOver; ++i) {
                    row.calls[i % row.calls.size()].run(host, i / row.calls.size());
                    ++mCount;
                    if (row.pause > kNoPause) {
                        std::this_thread::sleep_for(row.pause);
                    }
                }
            });
        }
    }
    ~ControlThreads() {
        mIsOver = true;
        for (std::thread& thread : mThreads) {
            thread.join();
        }
    }
    ControlThreads(const ControlThreads&) = delete;
    ControlThreads& operator=(const ControlThreads&) = delete;

    uint64_t count() const { return mCount; }

private:
    std::atomic<bool> mIsOver{false};
    std::atomic<uint64_t> mCount{0};
    std::vector<std::thread> mThreads;
};

/** Throws NotPermitted. */
Run measure(const Row& row, const Options& options) {
    LoadedHost host(options.streams,
                    row.isRealTime ? std::optional<int>(kWorkerPriority) : std::nullopt);
    host.waitUntilPlaying();
    const ControlThreads control(row, host);
    // Ends first: beside it no thread at nice 19 gets to its end.
    const BusyLoops load(kBusyLoops);
    std::this_thread::sleep_for(kSettle);

    const uint64_t callsBefore = control.count();
    const uint64_t shortBefore = host.shortBlockCount();
    const Clock::time_point begin = Clock::now();
    host.card().begin();
    std::this_thread::sleep_for(row.threadCount > 1 ? options.length / 2 : options.length);
    const SoundCard::Silence silence = host.card().silence();
    const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    return {silence.totalMs, silence.longestMs,
            static_cast<double>(control.count() - callsBefore) / seconds,
            static_cast<double>(host.shortBlockCount() - shortBefore)};
}

/** "median (lowest to highest)" */
std::string spread(std::vector<Run> runs, double Run::*figure) {
    std::sort(runs.begin(), runs.end(),
              [figure](const Run& a, const Run& b) { return a.*figure < b.*figure; });
    char text[64];
    snprintf(text, sizeof text, "%.0f (%.0f to %.0f)", runs[runs.size() / 2].*figure,
             runs.front().*figure, runs.back().*figure);
    return text;
}

void print(const Row& row, const Options& options) {
    std::vector<Run> runs;
    try {
        for (size_t i = 0; i < options.runs; ++i) {
            runs.push_back(measure(row, options));
        }
        printf("| %s | %s | %s | %s | %s |\n", row.name.c_str(),
               spread(runs, &Run::silenceMs).c_str(), spread(runs, &Run::longestMs).c_str(),
               spread(runs, &Run::callsASecond).c_str(), spread(runs, &Run::shortBlocks).c_str());
    } catch (const NotPermitted& refusal) {
        fprintf(stderr, "bench_preempt: skipped '%s': %s\n", row.name.c_str(), refusal.what());
        printf("| %s | skipped: %s | – | – | – |\n", row.name.c_str(), refusal.what());
    }
    fflush(stdout);
}

std::vector<Row> rowsOf(const Options& options) {
    if (!options.isEach) {
        return {
            {"no control thread", 0, kNoPause, false, options.calls},
            {"one thread, a call every 50 ms", 1, kPause, false, options.calls},
            {"one thread without a pause", 1, kNoPause, false, options.calls},
            {"eight threads without a pause", 8, kNoPause, false, options.calls},
            {"eight threads without a pause, the worker at SCHED_FIFO", 8, kNoPause, true,
             options.calls},
        };
    }
    std::vector<Row> rows;
    for (const Call& call : kCalls) {
        if (call.isShownAlone) {
            const std::string name(call.name);
            rows.push_back({name + ", one thread without a pause", 1, kNoPause, false, {call}});
            rows.push_back({name + ", eight threads without a pause", 8, kNoPause, false, {call}});
        }
    }
    return rows;
}

/** The run keeps to two processors. Later threads inherit that. */
void keepToProcessors() {
    cpu_set_t allowed;
    cpu_set_t kept;
    CPU_ZERO(&kept);
    sched_getaffinity(0, sizeof allowed, &allowed);
    size_t count = 0;
    for (size_t i = 0; i < CPU_SETSIZE && count < kProcessors; ++i) {
        if (CPU_ISSET(i, &allowed)) {
            CPU_SET(i, &kept);
            ++count;
        }
    }
    sched_setaffinity(0, sizeof kept, &kept);
    if (count < kProcessors) {
        fprintf(stderr, "bench_preempt: there is one processor only; expect more silence\n");
    }
}

[[noreturn]] void fail(const std::string& what) {
    fprintf(stderr, "bench_preempt: %s\n", what.c_str());
    exit(2);
}

std::vector<Call> callsNamed(const std::string& list) {
    std::vector<Call> calls;
    std::istringstream names(list);
    for (std::string name; std::getline(names, name, ',');) {
        const auto found = std::find_if(kCalls.begin(), kCalls.end(),
                                        [&name](const Call& call) { return name == call.name; });
        if (found == kCalls.end()) {
            fail("there is no call '" + name + "', see --help");
        }
        calls.push_back(*found);
    }
    return calls;
}

void printHelp() {
    puts(
        "bench_preempt [OPTION...]: ms of silence at a sound card while control threads at nice "
        "19\n"
        "call the library on two busy processors\n"
        "\n"
        "  --seconds S    length of a run; half of it with eight threads (default: 12)\n"
        "  --runs N       runs a row; the row shows the median and the range (default: 3)\n"
        "  --streams N    streams that play (default: 2)\n"
        "  --calls A,B    the calls that are made (default: all but flush): dump, volume, delay,\n"
        "                 churn, latency, stream-dump, flush\n"
        "  --each         a row for each call alone\n"
        "  --filter TEXT  only rows whose name contains TEXT");
}

double positive(const char* text) {
    char* end = nullptr;
    const double number = strtod(text, &end);
    if (end == text || *end != '\0' || !(number > 0 && number < 1e6)) {
        fail(std::string("'") + text + "' is not a positive number");
    }
    return number;
}

Options parse(int argc, char** argv) {
    constexpr option kOptions[] = {
        {"seconds", required_argument, nullptr, 's'}, {"runs", required_argument, nullptr, 'r'},
        {"streams", required_argument, nullptr, 'n'}, {"calls", required_argument, nullptr, 'c'},
        {"each", no_argument, nullptr, 'e'},          {"filter", required_argument, nullptr, 'f'},
        {"help", no_argument, nullptr, 'h'},          {},
    };
    Options options;
    std::copy_if(kCalls.begin(), kCalls.end(), std::back_inserter(options.calls),
                 [](const Call& call) { return call.isInCycle; });
    for (int which = 0; (which = getopt_long(argc, argv, "", kOptions, nullptr)) != -1;) {
        switch (which) {
            case 's':
                options.length = milliseconds(static_cast<int64_t>(positive(optarg) * 1000));
                break;
            case 'r':
                options.runs = std::max<size_t>(static_cast<size_t>(positive(optarg)), 1);
                break;
            case 'n':
                options.streams = std::max<size_t>(static_cast<size_t>(positive(optarg)), 1);
                break;
            case 'c':
                options.calls = callsNamed(optarg);
                break;
            case 'e':
                options.isEach = true;
                break;
            case 'f':
                options.filter = optarg;
                break;
            case 'h':
                printHelp();
                exit(0);
            default:
                exit(2);
        }
    }
    if (optind < argc || options.calls.empty()) {
        fail(optind < argc ? std::string("'") + argv[optind] + "' is not an option" : "no call");
    }
    return options;
}

}  // namespace

int main(int argc, char** argv) {
    const Options options = parse(argc, argv);
    keepToProcessors();
    const QuietLog quiet;
    puts(
        "| control calls at nice 19 | ms of silence | longest | calls a second | short blocks |\n"
        "| --- | --- | --- | --- | --- |");
    bool isAny = false;
    for (const Row& row : rowsOf(options)) {
        if (row.name.find(options.filter) != std::string::npos) {
            print(row, options);
            isAny = true;
        }
    }
    if (!isAny) {
        fail("no row has '" + options.filter + "' in its name");
    }
    return 0;
}
