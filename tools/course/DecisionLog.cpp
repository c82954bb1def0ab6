#include "tools/course/DecisionLog.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <type_traits>

#include "tools/process/ToolError.h"

namespace android {

static_assert(std::is_trivially_copyable_v<SyncDecision>);

namespace {

constexpr size_t kDecisionBytes = sizeof(SyncDecision);

[[noreturn]] void fail(const char* what) {
    throw ToolError(std::string("the temporary file of the decisions can't be ") + what + ": " +
                    strerror(errno) + "; make room for temporary files");
}

}  // namespace

const char* SyncDecision::nameOf(Kind kind) {
    switch (kind) {
        case Kind::NONE:
            return "none";
        case Kind::ANCHOR:
            return "re-anchor";
        case Kind::SILENCE:
            return "silence";
        case Kind::DROP:
            return "drop";
        case Kind::FREE_RUN:
            return "free-run";
    }
    return "";
}

void DecisionLog::add(const SyncDecision& decision) {
    // A page stays behind: what is heard later than it was decided is still here.
    if (mRecent.size() == 2 * kPage) {
        store();
    }
    mRecent.push_back(decision);
}

void DecisionLog::setHeard(uint64_t index, int64_t leadNs) {
    if (index >= mStoredCount && index < size()) {
        SyncDecision& decision = mRecent[index - mStoredCount];
        decision.isHeard = true;
        decision.heardLeadNs = leadNs;
    }
}

void DecisionLog::store() {
    if (mFile == nullptr) {
        mFile.reset(std::tmpfile());
        if (mFile == nullptr) {
            fail("made");
        }
    }
    constexpr size_t kBytes = kPage * kDecisionBytes;
    const auto offset = static_cast<off_t>(mStoredCount * kDecisionBytes);
    if (pwrite(fileno(mFile.get()), mRecent.data(), kBytes, offset) !=
        static_cast<ssize_t>(kBytes)) {
        fail("written");
    }
    mRecent.erase(mRecent.begin(), mRecent.begin() + kPage);
    mStoredCount += kPage;
}

SyncDecision DecisionLog::operator[](size_t index) const {
    if (index >= mStoredCount) {
        return mRecent[index - mStoredCount];
    }
    if (index / kPage != mLoadedPage) {
        load(index / kPage);
    }
    return mLoaded[index % kPage];
}

void DecisionLog::load(size_t page) const {
    constexpr size_t kBytes = kPage * kDecisionBytes;
    mLoaded.resize(kPage);
    if (pread(fileno(mFile.get()), mLoaded.data(), kBytes, static_cast<off_t>(page * kBytes)) !=
        static_cast<ssize_t>(kBytes)) {
        fail("read");
    }
    mLoadedPage = page;
}

}  // namespace android
