#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <vector>

#include "tools/course/SyncDecision.h"

namespace android {

/**
 * The decisions of a replay, in bounded memory: all but the last few thousand lie in a temporary file
 * that nobody else sees. The decision of burst N is the Nth.
 * Threads: one at a time.
 */
class DecisionLog {
public:
    /** Throws ToolError when the temporary file can't be made or written. */
    void add(const SyncDecision& decision);
    /** What is known later; only the last few thousand can still be told. */
    void setHeard(uint64_t index, int64_t leadNs);

    size_t size() const { return mStoredCount + mRecent.size(); }
    bool empty() const { return size() == 0; }
    /** Throws ToolError when the temporary file can't be read. */
    SyncDecision operator[](size_t index) const;
    SyncDecision back() const { return mRecent.back(); }

    /** Enough for a range-based for. */
    class Iterator {
    public:
        Iterator(const DecisionLog& log, size_t index) : mLog(&log), mIndex(index) {}
        SyncDecision operator*() const { return (*mLog)[mIndex]; }
        Iterator& operator++() {
            ++mIndex;
            return *this;
        }
        bool operator==(const Iterator& other) const { return mIndex == other.mIndex; }

    private:
        const DecisionLog* mLog;
        size_t mIndex;
    };
    Iterator begin() const { return {*this, 0}; }
    Iterator end() const { return {*this, size()}; }

private:
    static constexpr size_t kPage = 4096;  // decisions

    void store();
    void load(size_t page) const;

    struct Close {
        void operator()(FILE* file) const { fclose(file); }
    };
    std::unique_ptr<FILE, Close> mFile;
    size_t mStoredCount = 0;            // in the file, whole pages
    std::vector<SyncDecision> mRecent;  // behind them; never empty once there was one
    mutable std::vector<SyncDecision> mLoaded;
    mutable size_t mLoadedPage = SIZE_MAX;
};

}  // namespace android
