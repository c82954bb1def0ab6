#pragma once

#include <cstddef>
#include <vector>

namespace android {

/** Makes one column of each two neighbours, by Column::merge(): half as many, twice as wide. */
template <typename Column>
void mergePairs(std::vector<Column>& columns) {
    columns.resize((columns.size() + 1) / 2 * 2);
    for (size_t i = 0; i < columns.size() / 2; ++i) {
        Column merged = columns[2 * i];
        merged.merge(columns[2 * i + 1]);
        columns[i] = merged;
    }
    columns.resize(columns.size() / 2);
}

}  // namespace android
