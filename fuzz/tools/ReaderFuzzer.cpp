// All that the tools read from files and command lines: an error that names it, or a consistent
// result.

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <numeric>
#include <string>
#include <vector>

#include "fuzz/support/Fuzzing.h"
#include "interface/streamproxy.h"
#include "tools/audio/AudioReader.h"
#include "tools/audio/InputSpec.h"
#include "tools/burst/BurstFile.h"
#include "tools/burst/BurstScanner.h"
#include "tools/burst/BurstTally.h"
#include "tools/burst/Fault.h"
#include "tools/process/ToolError.h"
#include "tools/replay/ClockEvent.h"
#include "tools/text/TimeText.h"

using namespace android;

namespace {

/** A file in memory, with a name. */
class MemoryFile {
public:
    MemoryFile(const uint8_t* bytes, size_t byteCount) : mFd(memfd_create("fuzz", 0)) {
        FUZZ_EXPECT(write(mFd, bytes, byteCount) == static_cast<ssize_t>(byteCount));
    }
    ~MemoryFile() { close(mFd); }
    std::string path() const { return "/proc/self/fd/" + std::to_string(mFd); }

private:
    const int mFd;
};

void readAudio(const std::string& path) {
    AudioReader reader(path, {.allowTruncated = true, .fromSec = 0.0, .content = {}});
    FUZZ_EXPECT(reader.channelCount() > 0 && reader.rateHz() >= STREAMPROXY_MIN_SAMPLE_RATE &&
                reader.frameCount() > 0);
    std::vector<int32_t> wide(size_t{256} * reader.channelCount());
    std::vector<int16_t> narrow(wide.size());
    for (int i = 0; i < 200; ++i) {
        const size_t frames = reader.fits16Bits() ? reader.read16(narrow.data(), 256)
                                                  : reader.readQ27(wide.data(), 256);
        FUZZ_EXPECT(frames <= 256);
        if (frames < 256) {
            break;
        }
    }
}

/** Every byte of the file belongs to a header, a payload, garbage or a cut header. */
class Sum : public BurstSink {
public:
    void onGarbage(uint64_t offset, uint64_t byteCount) override {
        FUZZ_EXPECT(offset >= mEnd && byteCount > 0);
        mEnd = offset + byteCount;
        mTally.addGarbage(byteCount);
        mTotal += byteCount;
    }
    void onBurst(const Burst& burst) override {
        FUZZ_EXPECT(burst.offset >= mEnd && burst.headerByteCount >= 20);
        mEnd = burst.headerEnd();
        mTally.add(burst);
        mTotal += burst.headerByteCount + burst.usedPayloadByteCount();
    }
    uint64_t mEnd = 0;
    uint64_t mTotal = 0;
    BurstTally mTally{PcmFormat{}, 1'000'000};
};

void scan(const std::string& path, size_t chunk, size_t byteCount) {
    BurstFile file(path);
    Sum sum;
    BurstScanner scanner(sum);
    std::vector<uint8_t> bytes(chunk);
    for (size_t got = 0; (got = file.read(bytes.data(), chunk)) > 0;) {
        scanner.feed(bytes.data(), got);
    }
    scanner.finish();
    sum.mTally.finish(scanner);
    sum.mTally.counts();
    FUZZ_EXPECT(scanner.byteCount() == byteCount);
    FUZZ_EXPECT(sum.mTotal + scanner.cutHeaderByteCount() - scanner.missingPayloadByteCount() ==
                byteCount);
}

void parseTexts(const std::string& bytes) {
    // A command line holds no zero bytes.
    const std::string text = bytes.c_str();
    const auto attempt = [](auto parse) {
        try {
            parse();
        } catch (const ToolError& error) {
            FUZZ_EXPECT(error.what()[0] != '\0');
        }
    };
    attempt([&] {
        const InputSpec spec = InputSpec::parse(text);
        FUZZ_EXPECT(spec.gain >= 0 && spec.gain <= 1 && spec.startSec >= 0);
        FUZZ_EXPECT(spec.leftGain(1) >= 0 && spec.rightGain(1) <= 1);
    });
    attempt([&] { FUZZ_EXPECT(ClockEvent::parse(text, "--event").timeNs >= 0); });
    attempt([&] { FUZZ_EXPECT(parseTimeNs(text, "--length") >= 0); });
    attempt([&] { parseSignedTimeNs(text, "--offset"); });
    attempt([&] { FUZZ_EXPECT(FaultWish::parse(text).count > 0); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t byteCount) {
    if (byteCount < 2) {
        return 0;
    }
    const MemoryFile file(bytes + 2, byteCount - 2);
    try {
        switch (bytes[0] % 4) {
            case 0:
                readAudio(file.path());
                break;
            case 1:
                scan(file.path(), size_t{bytes[1]} + 1, byteCount - 2);
                break;
            case 2:
                ClockEvent::load(file.path());
                break;
            default:
                parseTexts(std::string(reinterpret_cast<const char*>(bytes) + 2, byteCount - 2));
                break;
        }
    } catch (const ToolError& error) {
        FUZZ_EXPECT(error.what()[0] != '\0');
    }
    return 0;
}
