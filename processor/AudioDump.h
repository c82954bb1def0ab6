#pragma once

#include <cstddef>

#include "utils/RefBase.h"

namespace android {

/**
 * A tap for PCM on its way: it knows where a dump would be written and which system property names
 * it. The dump operations take the data and do nothing with it.
 * Threads: any; immutable after construction.
 */
class AudioDump : public RefBase {
public:
    /** A text that does not fit into its array leaves the tap invalid, like a null one: a path cut
     *  short would name another file. `name` follows `directory` with no separator added. */
    AudioDump(const char* directory, const char* name, const char* property);

    void dump(const char* /*suffix*/, const void* /*data*/, size_t /*byteCount*/) {}
    void dump(const void* /*data*/, size_t /*byteCount*/) {}

private:
    static constexpr size_t kTextByteCount = 92;  // a system property's longest value, with its NUL

    char mPath[kTextByteCount] = {};
    char mProperty[kTextByteCount] = {};
    bool mValid = false;
};

}  // namespace android
