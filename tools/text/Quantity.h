#pragma once

#include <string>

namespace android {

/** A number and the word after it. */
struct Quantity {
    double value;      // NaN: the text does not begin with a finite number
    std::string unit;  // without blanks in front
};

Quantity quantityOf(const std::string& text);

}  // namespace android
