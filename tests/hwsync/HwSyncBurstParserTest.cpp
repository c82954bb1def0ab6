#include "hwsync/HwSyncBurstParser.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <memory>
#include <random>
#include <thread>
#include <utility>

#include "tests/hwsync/BurstModel.h"
#include "tests/support/LogCapture.h"

using namespace android;

namespace {

// Keeps the events, the payload runs of a burst joined.
class Recorder : public HwSyncBurstObserver {
public:
    int onBurstHeaderParsed(hw_sync_mode_t mode, unsigned int burstByteCount,
                            unsigned long ptsNs) override {
        mEvents.push_back({mode, burstByteCount, ptsNs, {}});
        mOnHeader();
        return -ENOSYS;
    }
    int onBurstPayloadParsed(const void* data, unsigned long byteCount) override {
        mLastRun = static_cast<const uint8_t*>(data);
        EXPECT_GT(byteCount, 0U);
        if (!mEvents.empty()) {  // one that was registered within a burst
            append(mEvents.back().payload, Bytes(mLastRun, mLastRun + byteCount));
        }
        mOnPayload();
        return -1;
    }

    std::vector<BurstEvent> mEvents;
    const uint8_t* mLastRun = nullptr;
    std::function<void()> mOnHeader = [] {};
    std::function<void()> mOnPayload = [] {};
};

// A parser with one observer.
struct Fixture {
    explicit Fixture(const sp<HwSyncHeaderBase>& header = new HwSyncHeaderV2)
        : parser(new HwSyncBurstParser(header)), recorder(new Recorder) {
        EXPECT_EQ(0, parser->registerObserver(recorder));
    }
    // Writes from a separate block, so that a sanitizer sees a read past its end.
    int write(const Bytes& bytes, size_t first, size_t end) const {
        const auto piece = std::make_unique<uint8_t[]>(end - first);
        std::copy(bytes.data() + first, bytes.data() + end, piece.get());
        return parser->parse(piece.get(), end - first);
    }
    int write(const Bytes& bytes) const { return write(bytes, 0, bytes.size()); }

    const sp<HwSyncBurstParser> parser;
    const sp<Recorder> recorder;
};

using Random = std::mt19937;

// Bytes that often look like the beginning of a magic.
Bytes makeNoise(Random& random, size_t byteCount) {
    Bytes bytes(byteCount);
    for (uint8_t& byte : bytes) {
        byte = Bytes{0x55, 0x55, 0x66, 0x66, 0x00, 0x02, 0x01, 0xA0}[random() % 8];
    }
    return bytes;
}

// A burst, whole or broken, or noise.
Bytes makePiece(Random& random) {
    Bytes noise = makeNoise(random, random() % 2 * (random() % 40));
    Header header{.ptsNs = random() * 1ULL << 32,
                  .magic = random() % 2 == 1 ? 0x66660002U : 0x55550002U,
                  .payloadOffset = static_cast<uint32_t>(15 + random() % 15)};
    Bytes burst = makeBurst(header, noise);
    switch (random() % 7) {
        case 0:
            return noise;
        case 1:
            burst[3] = 1;  // the other version: garbage
            return burst;
        case 2:
            burst[4] = static_cast<uint8_t>(0x80 + random() % 0x80);  // a burst without end
            return burst;
        case 3:
            burst.resize(random() % burst.size());
            return burst;
        default:
            return burst;
    }
}

// Sorted places, also equal ones; the last is `end`.
std::vector<size_t> makeCuts(Random& random, size_t end) {
    std::vector<size_t> cuts(1 + random() % 20, end);
    std::generate(cuts.begin() + 1, cuts.end(), [&] { return random() % (end + 1); });
    std::sort(cuts.begin(), cuts.end());
    return cuts;
}

// Writes `stream` in pieces that end at `cuts`, with a reset at `reset`, and compares the events
// with the model's.
void expectAsModel(const Bytes& stream, const std::vector<size_t>& cuts, size_t reset) {
    LogCapture log;
    const Fixture fixture;
    size_t done = 0;
    for (const size_t cut : cuts) {
        ASSERT_EQ(static_cast<int>(cut - done), fixture.write(stream, done, cut));
        done = cut;
        if (done == reset) {
            fixture.parser->reset();
        }
    }
    BurstModel model;
    model.run(Bytes(stream.data(), stream.data() + reset));
    model.run(Bytes(stream.data() + reset, stream.data() + stream.size()));
    ASSERT_EQ(model.events, fixture.recorder->mEvents);
    // The cuts decide whether a bad offset or the garbage before it is reported first; each kind of
    // message keeps its order.
    std::vector<std::string> garbage;
    std::vector<std::string> faults;
    for (const std::string& message : log.messages()) {
        const std::string text = message.substr(message.find(": ") + 2);
        (text.find("garbage") != std::string::npos ? garbage : faults).push_back(text);
    }
    ASSERT_EQ(model.garbageLog, garbage);
    ASSERT_EQ(model.faultLog, faults);
}

TEST(HwSyncBurstParser, FindsTheSameBurstsHoweverTheStreamIsCut) {
    for (unsigned seed = 1; seed <= 300; ++seed) {
        SCOPED_TRACE(seed);
        Random random(seed);
        Bytes stream;
        for (size_t pieces = 1 + random() % 6; pieces > 0; --pieces) {
            append(stream, makePiece(random));
        }
        std::vector<size_t> everyByte;
        for (size_t cut = 0; cut <= stream.size(); ++cut) {
            expectAsModel(stream, {cut, stream.size()}, 0);
            everyByte.push_back(cut);
        }
        for (size_t reset = 0; reset <= stream.size(); reset += 1 + random() % 9) {
            expectAsModel(stream, everyByte, reset);
            const auto cuts = makeCuts(random, stream.size());
            expectAsModel(stream, cuts, cuts[random() % cuts.size()]);
        }
        ASSERT_FALSE(HasFailure());
    }
}

TEST(HwSyncBurstParser, PassesOnTheWritersBytesAndRefusesBadWrites) {
    LogCapture log;
    const Fixture fixture;
    const auto mismatch = [&log](const std::string& parsed, const std::string& given) {
        EXPECT_EQ("W hwsync_parser: parse,  parsed burst size is " + parsed +
                      ", not equal to original " + given,
                  log.messages().back());
    };
    const Bytes burst = makeBurst({.payloadOffset = 30}, {1, 2});
    EXPECT_EQ(0, fixture.parser->parse(nullptr, 0));
    EXPECT_TRUE(log.messages().empty());
    EXPECT_EQ(-EINVAL, fixture.parser->parse(nullptr, 5));
    mismatch("-22", "5");
    EXPECT_EQ(0, fixture.parser->parse(burst.data(), 0x80000000));
    mismatch("0", "2147483648");
    EXPECT_EQ(32, fixture.parser->parse(burst.data(), 0x100000020));
    mismatch("32", "32");
    EXPECT_EQ(&burst[30], fixture.recorder->mLastRun);
    const Fixture withoutStore(new HwSyncHeaderV2([](size_t, size_t) -> void* { return nullptr; }));
    EXPECT_EQ(-1, withoutStore.write(burst));
    mismatch("-1", "32");
}

TEST(HwSyncBurstParser, CallsEachObserverOnceInOrderUntilItIsRemoved) {
    const Fixture fixture;
    const sp<Recorder> second(new Recorder);
    second->mOnHeader = [&] { EXPECT_EQ(second->mEvents, fixture.recorder->mEvents); };
    EXPECT_EQ(-EINVAL, fixture.parser->registerObserver(nullptr));
    EXPECT_EQ(-EINVAL, fixture.parser->unregisterObserver(nullptr));
    EXPECT_EQ(0, fixture.parser->registerObserver(second));
    EXPECT_EQ(0, fixture.parser->registerObserver(second));
    fixture.write(makeBurst({}, {1}));
    EXPECT_EQ(0, fixture.parser->unregisterObserver(second));
    EXPECT_EQ(-EINVAL, fixture.parser->unregisterObserver(second));
    EXPECT_EQ(1, second->getStrongCount());
    fixture.write(makeBurst({}, {1}));
    EXPECT_EQ(1U, second->mEvents.size());
    EXPECT_EQ(2U, fixture.recorder->mEvents.size());
}

TEST(HwSyncBurstParser, AResetDuringACallbackEndsTheBurstThere) {
    LogCapture log;
    for (const bool inPayload : {false, true}) {
        const Fixture fixture;
        const auto reset = [&] {
            if (fixture.recorder->mEvents.size() == 1) {
                std::thread([&] { fixture.parser->reset(); }).join();
            }
        };
        (inPayload ? fixture.recorder->mOnPayload : fixture.recorder->mOnHeader) = reset;
        Bytes stream = makeBurst({.ptsNs = 1}, Bytes(10, 0xEE));
        append(stream, makeBurst({.ptsNs = 2}, {7, 8}));
        // The current run of 4 payload bytes is delivered; the other 6 are skipped.
        EXPECT_EQ(24, fixture.write(stream, 0, 24));
        EXPECT_EQ(28, fixture.write(stream, 24, 52));
        EXPECT_EQ((std::vector<BurstEvent>{{0, 10, 1, Bytes(inPayload ? 4 : 0, 0xEE)},
                                           {0, 2, 2, {7, 8}}}),
                  fixture.recorder->mEvents);
    }
}

}  // namespace
