#pragma once

#include <sys/types.h>

#include <cstddef>
#include <vector>

namespace android {

/** A growing array. Its storage is kept by clear(), so that a warm vector allocates nothing. */
template <typename T>
class Vector {
public:
    using const_iterator = typename std::vector<T>::const_iterator;

    size_t size() const { return mItems.size(); }
    bool isEmpty() const { return mItems.empty(); }
    const T& operator[](size_t index) const { return mItems[index]; }
    T& editItemAt(size_t index) { return mItems[index]; }

    /** Appends; the index of the new item. */
    ssize_t add(const T& item) {
        mItems.push_back(item);
        return static_cast<ssize_t>(mItems.size() - 1);
    }
    /** Removes one item; later ones move up. The index, or -1 where there is none. */
    ssize_t removeAt(size_t index) {
        if (index >= mItems.size()) {
            return -1;
        }
        mItems.erase(mItems.begin() + static_cast<std::ptrdiff_t>(index));
        return static_cast<ssize_t>(index);
    }
    void clear() { mItems.clear(); }
    /** Makes room for `itemCount` items in all: adding up to that many allocates nothing. */
    void setCapacity(size_t itemCount) { mItems.reserve(itemCount); }

    const_iterator begin() const { return mItems.begin(); }
    const_iterator end() const { return mItems.end(); }

private:
    std::vector<T> mItems;
};

}  // namespace android
